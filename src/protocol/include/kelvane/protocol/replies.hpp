// Replies of the controller board that the library compares exactly.
#pragma once

#include <string_view>

namespace kelvane::replies {

// The controller's acknowledgement. "can.send" answers exactly this for a frame it put on the
// bus; the other calls that acknowledge ("can.open", "vantrel.fixture_init", the lock, the IO
// lines, the fans) answer a text that holds it.
inline constexpr std::string_view done = "done";

// A tray move's acknowledgement: the move has started. The library then confirms the position
// on the move's sensor; any other reply is the move's result as it is.
inline constexpr std::string_view upDone = "up_done";
inline constexpr std::string_view downDone = "down_done";
inline constexpr std::string_view inDone = "in_done";
inline constexpr std::string_view outDone = "out_done";

// The DUT presence sensor's reading. Only the first counts as a DUT in place.
inline constexpr std::string_view dutPresent = "dut_sensor_on";
inline constexpr std::string_view dutAbsent = "dut_sensor_off";

}  // namespace kelvane::replies
