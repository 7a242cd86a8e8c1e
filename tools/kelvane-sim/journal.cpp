#include "journal.hpp"

namespace kelvane::sim {

void Journal::record(const jsonrpc::Request& request) {
    if (entries_.size() == capacity) entries_.pop_front();
    entries_.push_back(
        {{"method", request.method}, {"params", request.params}, {"kwargs", request.kwargs}});
}

void Journal::noteScript(std::string_view action) {
    if (!entries_.empty()) entries_.back()["script"] = std::string(action);
}

Value Journal::entries() const {
    Value all = Value::array();
    for (const auto& entry : entries_) all.push_back(entry);
    return all;
}

}  // namespace kelvane::sim
