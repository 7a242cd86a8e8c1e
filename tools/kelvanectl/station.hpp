// A command run on several fixtures at once, as a station engineer does across a rack: every
// fixture on a thread of its own, the reports in address order.
#pragma once

#include "report.hpp"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace kelvanectl {

// Runs `onFixture` for every address at once and returns its reports in the order of
// `addresses`, each carrying its address. What one of them throws is thrown here once all ended.
std::vector<Report> onEveryFixture(const std::vector<std::string>& addresses,
                                   const std::function<Report(const std::string&)>& onFixture);

// Publishes the reports in order; returns the worst of their exit statuses.
int publishAll(const std::vector<Report>& reports, bool json, std::FILE* messages);

}  // namespace kelvanectl
