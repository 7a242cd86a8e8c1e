// Reply frames come from the controller (or anything else on its port): decoding must refuse
// or accept them without UB, and what it accepts must survive being encoded again unchanged.
// Requests are decoded the same way by the simulator, so they take the same input.
#include <kelvane/protocol/json_rpc.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace kelvane;

namespace {

void check(bool holds) {
    if (!holds) std::abort();
}

void replyRoundTrip(std::string_view text) {
    auto reply = jsonrpc::decodeReply(text);
    if (!reply) return;
    if (reply->error) {
        auto again = jsonrpc::decodeReply(jsonrpc::encodeError(reply->id, *reply->error));
        check(again && again->id == reply->id && again->error);
        check(again->error->code == reply->error->code && again->error->message == reply->error->message);
    } else {
        auto again = jsonrpc::decodeReply(jsonrpc::encodeResult(reply->id, reply->result));
        check(again && again->id == reply->id && !again->error && again->result == reply->result);
    }
}

void requestRoundTrip(std::string_view text) {
    auto request = jsonrpc::decodeRequest(text);
    if (!request) return;
    auto again = jsonrpc::decodeRequest(jsonrpc::encodeRequest(*request));
    check(again && again->id == request->id && again->method == request->method);
}

// Any bytes in a text value, valid UTF-8 or not, encode to JSON that reads back.
void textEncodes(std::string_view bytes) { (void)Value::parse(jsonrpc::toJson(Value(std::string(bytes)))); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    replyRoundTrip(text);
    requestRoundTrip(text);
    textEncodes(text);
    return 0;
}
