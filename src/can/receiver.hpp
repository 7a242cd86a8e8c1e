// Collecting a TEC controller's answer from the frames the controller board hands back.
#pragma once

#include "can/bridge.hpp"

#include <string>

namespace kelvane::can {

// Reads frames with "can.recv" until one whose last data byte is 3 ends the answer, or until a
// read brings nothing (no reply, or an empty one). Each frame's bytes after its header are
// decoded as text and appended; the answer is empty when nothing was decoded.
//
// There is no bound on the number of frames: a controller that keeps sending frames without a
// closing 3 keeps the caller here. Only the transport's timeout bounds each single read.
std::string receiveAnswer(const Bridge& bridge, std::int32_t slot);

}  // namespace kelvane::can
