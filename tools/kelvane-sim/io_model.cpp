#include "io_model.hpp"

#include <kelvane/protocol/methods.hpp>

#include <optional>
#include <vector>

namespace kelvane::sim {
namespace {

constexpr std::string_view doneReply = "done";
constexpr std::string_view refusal = "io_set_refused: expected a list of [line, state] integer pairs";

bool isPair(const Value& value) {
    return value.is_array() && value.size() == 2 && value[0].is_number_integer() && value[1].is_number_integer();
}

// The pairs of the one positional argument. Setting a single line sends [[line, state]], while
// fixture initialisation sends its list one level deeper ([[[10, 0]]]); both are accepted.
std::optional<std::vector<Value>> pairsIn(const Value& list) {
    if (!list.is_array() || list.empty()) return std::nullopt;
    std::vector<Value> pairs;
    for (const auto& element : list) {
        if (isPair(element)) {
            pairs.push_back(element);
            continue;
        }
        if (!element.is_array() || element.empty()) return std::nullopt;
        for (const auto& inner : element) {
            if (!isPair(inner)) return std::nullopt;
            pairs.push_back(inner);
        }
    }
    return pairs;
}

}  // namespace

bool IoModel::handles(std::string_view method) const { return method == methods::fixtureIoSet; }

Outcome IoModel::call(const jsonrpc::Request& request) {
    auto pairs = pairsIn(argument(request, 0));
    if (!pairs) return Outcome::reply(refusal);
    for (const auto& pair : *pairs) lines_[describe(pair[0])] = pair[1];
    return Outcome::reply(doneReply);
}

Value IoModel::state() const { return {{"io", lines_}}; }

void IoModel::reset() { lines_ = Value::object(); }

}  // namespace kelvane::sim
