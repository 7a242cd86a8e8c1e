// Ctrl-C (SIGINT) as the way to end a command that repeats until stopped. Between two rounds the
// command waits in waitFor, which an interrupt cuts short; during a round (a TEC reading can
// block for half a minute when a controller stays silent) an interrupt ends the process at once
// with exit status 0, as nothing of that round has been printed yet.
#pragma once

#include <chrono>

namespace kelvanectl {

class Interruption {
public:
    // Takes over SIGINT until destroyed; one at a time.
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // Runs `round`; an interrupt meanwhile ends the process with exit status 0.
    template <typename Round>
    auto during(Round&& round) {
        Exiting exiting;
        return round();
    }

    // Waits `period`; false as soon as an interrupt came (also one before the call).
    bool waitFor(std::chrono::duration<double> period);

private:
    struct Exiting {
        Exiting();
        ~Exiting();
    };
};

}  // namespace kelvanectl
