// Where kelvanectl's own messages (errors, progress) go: standard error. The library's
// step-by-step log shares it only when asked for (--log); otherwise the device is made with its
// log switched off.
#pragma once

#include <cstdio>

#include <unistd.h>

namespace kelvanectl {

class Console {
public:
    std::FILE* messages() const { return stderr; }
    // Whether a person is watching the messages (a progress indication makes sense).
    bool isTerminal() const { return terminal_; }

private:
    bool terminal_ = isatty(STDERR_FILENO) == 1;
};

}  // namespace kelvanectl
