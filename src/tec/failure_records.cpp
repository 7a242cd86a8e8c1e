#include "tec/failure_records.hpp"

namespace kelvane::tec {

void FailureRecords::append(const std::string& line) {
    std::lock_guard lock(mutex_);
    if (lines_.is_array()) lines_.push_back(line);
}

void FailureRecords::clear() {
    std::lock_guard lock(mutex_);
    if (lines_.is_array()) lines_.clear();
}

Value FailureRecords::snapshot() const {
    std::lock_guard lock(mutex_);
    return lines_.is_array() ? lines_ : Value::array();
}

}  // namespace kelvane::tec
