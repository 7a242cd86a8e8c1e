// Where the process log goes.
#pragma once

#include <kelvane/Platform.hpp>

#include <memory>
#include <string_view>

namespace kelvane {

// The host's environment variable that routes the process log.
constexpr const char* processLogRouteVariable = "KELVANE_LOG";

// The log for a route: "stderr" (and the empty route) writes to standard error, "off" drops
// every line, anything else is a file path to append to. A file that cannot be opened (its
// folder is never created) leaves the log on standard error, which first gets one line saying so.
std::shared_ptr<LogSink> processLogRoutedBy(std::string_view route);

}  // namespace kelvane
