// Standard error belongs to the library's step-by-step log; kelvanectl's own messages (errors,
// progress) go to a private copy of it, so the log can be silenced without silencing them.
#pragma once

#include <cstdio>

namespace kelvanectl {

class Console {
public:
    // Unless `showLibraryLog`, standard error is sent to /dev/null from here on.
    explicit Console(bool showLibraryLog);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    std::FILE* messages() const { return messages_; }
    // Whether a person is watching the messages (a progress indication makes sense).
    bool isTerminal() const { return terminal_; }

private:
    std::FILE* messages_ = stderr;
    bool terminal_ = false;
};

}  // namespace kelvanectl
