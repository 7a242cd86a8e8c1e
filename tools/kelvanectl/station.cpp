#include "station.hpp"

#include <algorithm>
#include <exception>
#include <system_error>
#include <thread>

namespace kelvanectl {

std::vector<Report> onEveryFixture(const std::vector<std::string>& addresses,
                                   const std::function<Report(const std::string&)>& onFixture) {
    std::vector<Report> reports(addresses.size());
    std::vector<std::exception_ptr> failures(addresses.size());  // what escaped a fixture's thread
    auto runOn = [&](std::size_t i) {
        try {
            reports[i] = onFixture(addresses[i]);
            reports[i].fixture = addresses[i];
        } catch (...) {
            failures[i] = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(addresses.size());
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        try {
            threads.emplace_back(runOn, i);
        } catch (const std::system_error&) {
            runOn(i);  // out of threads: this fixture waits its turn on the calling thread
        }
    }
    for (auto& thread : threads) thread.join();
    for (const auto& failure : failures) {
        if (failure) std::rethrow_exception(failure);
    }
    return reports;
}

int publishAll(const std::vector<Report>& reports, bool json, std::FILE* messages) {
    // Unreachable (2) is worse than refused (1), which is worse than done (0).
    int worst = exitOk;
    for (const auto& report : reports) worst = std::max(worst, publish(report, json, messages));
    return worst;
}

}  // namespace kelvanectl
