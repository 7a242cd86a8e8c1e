// The simulator's control methods: what tests and the panel send kelvane-sim to script answers,
// read its journal and change its world (docs/simulator.md). No controller board answers them.
// The simulator and the C++ tests take the names from here; python/kelvane/simulator.py keeps a
// copy that a test of the package pins to this one.
#pragma once

#include <array>
#include <string_view>

namespace kelvane::methods::sim {

// Every control method starts with it, and nothing else the simulator is asked does.
inline constexpr std::string_view prefix = "sim.";

inline constexpr std::string_view script = "sim.script";
inline constexpr std::string_view clearScripts = "sim.clear_scripts";
inline constexpr std::string_view journal = "sim.journal";
inline constexpr std::string_view clearJournal = "sim.clear_journal";
inline constexpr std::string_view state = "sim.state";
inline constexpr std::string_view set = "sim.set";
inline constexpr std::string_view reset = "sim.reset";
inline constexpr std::string_view replayReport = "sim.replay_report";

inline constexpr std::array all = {script, clearScripts, journal, clearJournal, state, set, reset, replayReport};

}  // namespace kelvane::methods::sim
