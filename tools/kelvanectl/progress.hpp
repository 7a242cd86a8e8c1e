// While a tray move polls its sensor (up to 15 s), a spinner and the seconds elapsed on one
// terminal line, so the engineer sees the tool is waiting, not hung. The line is wiped when
// the move returns.
#pragma once

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace kelvanectl {

class Progress {
public:
    Progress(std::FILE* terminal, std::string label);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void show();

    std::FILE* terminal_;
    std::string label_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;  // last: starts once the fields above are set
};

}  // namespace kelvanectl
