#include <kelvane/protocol/json_rpc.hpp>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace kelvane::jsonrpc {
namespace {

// Copying, printing and freeing a parsed value recurses once per level, so a peer could crash
// us with a frame of nothing but brackets. Real messages nest a handful of levels.
constexpr int maxNestingDepth = 128;

// Follows JSON text character by character to tell string literals from the rest.
class StringLiterals {
public:
    // True when `c` belongs to a string literal, its quotes included.
    bool take(char c) {
        if (inString_) {
            if (escaped_)
                escaped_ = false;
            else if (c == '\\')
                escaped_ = true;
            else if (c == '"')
                inString_ = false;
            return true;
        }
        return inString_ = (c == '"');
    }

private:
    bool inString_ = false;
    bool escaped_ = false;
};

bool nestsTooDeep(std::string_view text) {
    int depth = 0;
    StringLiterals strings;
    for (char c : text) {
        if (strings.take(c)) continue;
        if (c == '[' || c == '{') {
            if (++depth > maxNestingDepth) return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

// Whether a JSON number token is too large in magnitude for a double. Decided on its significant
// digits and decimal exponent, so neither the locale's decimal point nor a giant exponent matters.
bool overflowsDouble(std::string_view number) {
    std::string digits;
    long long exponent = 0;  // of the last digit in `digits`
    std::size_t at = number.starts_with('-') ? 1 : 0;
    bool fraction = false;
    for (; at < number.size() && number[at] != 'e' && number[at] != 'E'; ++at) {
        if (number[at] == '.') {
            fraction = true;
        } else {
            if (!digits.empty() || number[at] != '0') digits += number[at];
            if (fraction) --exponent;
        }
    }
    if (digits.empty()) return false;  // zero
    if (at < number.size()) {
        constexpr long long saturated = 100000;
        long long written = 0;
        bool negative = at + 1 < number.size() && number[at + 1] == '-';
        for (std::size_t i = at + 1; i < number.size(); ++i) {
            if (std::isdigit(static_cast<unsigned char>(number[i])))
                written = std::min(saturated, written * 10 + (number[i] - '0'));
        }
        exponent += negative ? -written : written;
    }
    long long leading = exponent + static_cast<long long>(digits.size()) - 1;  // 10^leading
    if (leading > std::numeric_limits<double>::max_exponent10) return true;
    if (leading < std::numeric_limits<double>::max_exponent10) return false;
    std::string plain = digits + "e" + std::to_string(exponent);  // no decimal point
    return std::isinf(std::strtod(plain.c_str(), nullptr));
}

// The text with every number too large for a double replaced by a JSON text holding the number's
// literal, so one such number does not make the whole message unreadable.
std::string quoteOverflowingNumbers(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 16);
    StringLiterals strings;
    for (std::size_t i = 0; i < text.size();) {
        char c = text[i];
        if (!strings.take(c) && (c == '-' || std::isdigit(static_cast<unsigned char>(c)))) {
            std::size_t end = i + 1;
            while (end < text.size() && (std::isdigit(static_cast<unsigned char>(text[end])) ||
                                         std::string_view(".eE+-").find(text[end]) != std::string_view::npos)) {
                ++end;
            }
            auto number = text.substr(i, end - i);
            if (overflowsDouble(number))
                out += '"' + std::string(number) + '"';
            else
                out += number;
            i = end;
            continue;
        }
        out += c;
        ++i;
    }
    return out;
}

std::optional<std::int64_t> integerId(const Value& message) {
    auto id = message.find("id");
    if (id == message.end() || !id->is_number_integer()) return std::nullopt;
    return id->get<std::int64_t>();
}

// An integer code, clamped to the range of int: a huge code stays huge and keeps its sign.
int clampedCode(const Value& code) {
    constexpr auto lowest = std::numeric_limits<int>::min();
    constexpr auto highest = std::numeric_limits<int>::max();
    if (code.is_number_unsigned()) {
        return static_cast<int>(std::min<std::uint64_t>(code.get<std::uint64_t>(), highest));
    }
    return static_cast<int>(std::clamp<std::int64_t>(code.get<std::int64_t>(), lowest, highest));
}

// `error` is an object.
RpcError errorFrom(const Value& error) {
    RpcError result;
    if (auto code = error.find("code"); code != error.end() && code->is_number_integer()) {
        result.code = clampedCode(*code);
    }
    auto message = error.find("message");
    result.message = message == error.end() ? "" : describe(*message);
    return result;
}

}  // namespace

std::optional<Value> parseObject(std::string_view text) {
    if (nestsTooDeep(text)) return std::nullopt;
    Value parsed = Value::parse(text, nullptr, false);
    if (parsed.is_discarded()) {
        // The slow path only for text that did not parse: perhaps a number beyond double range.
        auto quoted = quoteOverflowingNumbers(text);
        if (quoted.size() != text.size()) parsed = Value::parse(quoted, nullptr, false);
    }
    if (parsed.is_discarded() || !parsed.is_object()) return std::nullopt;
    return parsed;
}

std::string toJson(const Value& value) { return value.dump(-1, ' ', false, Value::error_handler_t::replace); }

std::string encodeRequest(const Request& request) {
    Value message = {{"jsonrpc", "2.0"},
                     {"id", request.id},
                     {"method", request.method},
                     {"params", request.params.is_array() ? request.params : Value::array()}};
    if (request.kwargs.is_object()) message["kwargs"] = request.kwargs;
    return toJson(message);
}

std::optional<Request> decodeRequest(std::string_view text) {
    auto message = parseObject(text);
    if (!message) return std::nullopt;
    auto id = integerId(*message);
    auto method = message->find("method");
    if (!id || method == message->end() || !method->is_string()) return std::nullopt;
    Request request;
    request.id = *id;
    request.method = method->get<std::string>();
    if (auto params = message->find("params"); params != message->end() && params->is_array()) {
        request.params = *params;
    }
    if (auto kwargs = message->find("kwargs"); kwargs != message->end() && kwargs->is_object()) {
        request.kwargs = *kwargs;
    }
    return request;
}

std::string encodeResult(std::int64_t id, const Value& result) {
    return toJson({{"jsonrpc", "2.0"}, {"id", id}, {"result", result}});
}

std::string encodeError(std::int64_t id, const RpcError& error) {
    return toJson({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", error.code}, {"message", error.message}}}});
}

std::optional<Reply> decodeReply(std::string_view text) {
    auto message = parseObject(text);
    if (!message) return std::nullopt;
    auto id = integerId(*message);
    if (!id) return std::nullopt;
    if (auto version = message->find("jsonrpc"); version != message->end() && !isText(*version, "2.0")) {
        return std::nullopt;
    }
    Reply reply;
    reply.id = *id;
    if (auto error = message->find("error"); error != message->end() && !error->is_null()) {
        if (!error->is_object()) return std::nullopt;
        reply.error = errorFrom(*error);
    } else if (auto result = message->find("result"); result != message->end()) {
        reply.result = std::move(*result);
    } else {
        return std::nullopt;
    }
    return reply;
}

}  // namespace kelvane::jsonrpc
