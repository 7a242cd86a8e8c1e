// The fixture's CAN bridge: the controller board's CAN methods ("can.open", "can.send",
// "can.recv", each giving the board 3000 ms), and over them the TEC controllers' text commands,
// cut into frames and answered in frames. Progress goes to the process log and to the slot's TEC
// monitor log (tec/files.hpp).
#pragma once

#include <kelvane/Platform.hpp>
#include <kelvane/RpcClient.hpp>
#include <kelvane/Value.hpp>

#include "tec/files.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane::can {

// The data bytes of one frame, each 0..255.
using Frame = std::vector<int>;

// A Bridge serves one operation (a CAN operation of the session, a TEC pass) from its start to
// its end, with the controller board's client and the fixture's identifier (which names the
// monitor logs) as they were when the operation began: a host that replaces either meanwhile
// changes nothing under the operation, and cannot destroy the client under it.
//
// Used by the one thread that runs its operation, a host thread or a TEC worker. Bridges of
// several threads may talk at once: nothing here keeps their frames apart (the TEC monitor's
// object lock does that for the passes). Every operation blocks its thread for its exchange and
// never throws.
class Bridge {
public:
    // Null client: every call gives no reply.
    Bridge(const Platform& platform, std::shared_ptr<RpcClient> client, Value identifier);

    // bridge.cpp: the channel, one fixed frame, and whole commands with their answers.

    // "can.open" with the bit rate as given; true when the reply's printed text holds "done".
    bool openChannel(const Value& bitRate) const;
    // Puts one frame with the data 1, 2, 3 on the bus under `messageId`, whatever `command`
    // holds. Logs whether the board took it; always true.
    bool sendFixedFrame(std::uint32_t messageId, const std::string& command) const;
    // Sends `command`'s frames to the controller at `messageId` (passed to the board as it is:
    // the TEC code gives an integer) and waits up to 5 s for an answer holding "OK" in any
    // letter case. False when a frame is refused or no such answer came.
    bool sendCommand(const Value& messageId, const std::string& command, std::int32_t slot) const;
    // As sendCommand, but gives the answer (letter case as received), or nothing on failure.
    std::optional<std::string> sendCommandForAnswer(const Value& messageId, const std::string& command,
                                                    std::int32_t slot) const;

    // frames.cpp: the frames' format, both ways.

    // The frames of a command in sending order. The payload is the command's UTF-8 bytes and a
    // 0x03 terminator. Up to 7 payload bytes go in one single frame (byte count, payload).
    // Longer payloads get a first frame (0x10, byte count, 6 bytes) and consecutive frames 0x21
    // (two frames), 0x21 0x22 (three) or 0x21 0x21 0x22 (four): the controllers expect that
    // repeated 0x21. The last frame takes the rest unpadded, so it may run past 8 bytes. More
    // than 29 payload bytes give no frame at all.
    std::vector<Frame> framesForCommand(const std::string& command, std::int32_t slot) const;
    // Reads frames with "can.recv" until one whose last data byte is 3 ends the answer, or until
    // a read brings nothing (no reply, or an empty one). Each frame's bytes after its header are
    // decoded as text and appended; the answer is empty when nothing was decoded. There is no
    // bound on the number of frames: a controller that keeps sending frames without a closing 3
    // keeps the caller here. Only the transport's timeout bounds each single read.
    std::string receiveAnswer(std::int32_t slot) const;

private:
    Value call(std::string_view method, const Value& args) const;
    bool sendFrames(const Value& messageId, const std::string& command, std::int32_t slot) const;
    std::string awaitAnswer(std::int32_t slot) const;

    std::shared_ptr<RpcClient> client_;
    Clock& clock_;
    LogSink& log_;
    tec::TecFiles files_;
};

}  // namespace kelvane::can
