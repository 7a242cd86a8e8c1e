#include "journal.hpp"

#include <algorithm>

namespace kelvane::sim {

void Journal::record(const jsonrpc::Request& request) {
    if (entries_.size() == capacity) entries_.pop_front();
    entries_.push_back(
        {{"method", request.method}, {"params", request.params}, {"kwargs", request.kwargs}});
}

void Journal::noteScript(std::string_view action) {
    if (!entries_.empty()) entries_.back()["script"] = std::string(action);
}

Value Journal::entries(std::size_t newest) const {
    Value all = Value::array();
    auto skipped = entries_.size() - std::min(newest, entries_.size());
    for (auto entry = entries_.begin() + static_cast<std::ptrdiff_t>(skipped); entry != entries_.end(); ++entry) {
        all.push_back(*entry);
    }
    return all;
}

}  // namespace kelvane::sim
