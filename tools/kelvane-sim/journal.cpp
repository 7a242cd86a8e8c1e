#include "journal.hpp"

#include <algorithm>

namespace kelvane::sim {

std::size_t Journal::cost(const Entry& entry) {
    return sizeof(Entry) + entry.request.capacity() + entry.script.capacity();
}

void Journal::record(const jsonrpc::Request& request) {
    Value shown = {{"method", request.method}, {"params", request.params}, {"kwargs", request.kwargs}};
    Entry entry{jsonrpc::toJson(shown), {}};
    entry.request.shrink_to_fit();
    bytes_ += cost(entry);
    entries_.push_back(std::move(entry));
    keepWithinLimit();
}

void Journal::noteScript(std::string_view action) {
    if (entries_.empty()) return;
    auto& newest = entries_.back();
    bytes_ -= cost(newest);
    newest.script = action;
    bytes_ += cost(newest);
    keepWithinLimit();
}

void Journal::keepWithinLimit() {
    while (bytes_ > limitBytes_ && entries_.size() > 1) {
        bytes_ -= cost(entries_.front());
        entries_.pop_front();
    }
}

Value Journal::entries(std::size_t newest) const {
    Value all = Value::array();
    auto skipped = entries_.size() - std::min(newest, entries_.size());
    for (auto entry = entries_.begin() + static_cast<std::ptrdiff_t>(skipped); entry != entries_.end(); ++entry) {
        Value shown = Value::parse(entry->request);
        if (!entry->script.empty()) shown["script"] = entry->script;
        all.push_back(std::move(shown));
    }
    return all;
}

void Journal::clear() {
    entries_ = {};
    bytes_ = 0;
}

}  // namespace kelvane::sim
