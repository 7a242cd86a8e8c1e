#include "console.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace kelvanectl {

Console::Console(bool showLibraryLog) {
    terminal_ = isatty(STDERR_FILENO) == 1;
    int copy = dup(STDERR_FILENO);
    std::FILE* own = copy >= 0 ? fdopen(copy, "w") : nullptr;
    if (!own) {
        if (copy >= 0) close(copy);
        return;  // keep writing to standard error itself, log included
    }
    setvbuf(own, nullptr, _IONBF, 0);
    messages_ = own;
    if (showLibraryLog) return;
    int null = open("/dev/null", O_WRONLY);
    if (null < 0) return;
    dup2(null, STDERR_FILENO);
    close(null);
}

Console::~Console() {
    if (messages_ != stderr) std::fclose(messages_);
}

}  // namespace kelvanectl
