// A self-pipe: one thread rouses another that is blocked in poll. Signals do not count;
// one byte or many, the sleeper wakes once and drains them all.
#pragma once

#include <zmq.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <array>

namespace kelvane {

class WakePipe {
public:
    WakePipe() {
        if (::pipe(fds_.data()) != 0) throw zmq::error_t();
        for (int fd : fds_) {
            ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
            ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
    }
    ~WakePipe() {
        for (int fd : fds_) ::close(fd);
    }
    WakePipe(const WakePipe&) = delete;
    WakePipe& operator=(const WakePipe&) = delete;

    int readEnd() const { return fds_[0]; }
    // A full pipe already holds a wake-up, so a failed write loses nothing.
    void signal() {
        char byte = 1;
        [[maybe_unused]] auto written = ::write(fds_[1], &byte, 1);
    }
    void drain() {
        std::array<char, 64> bytes;
        while (::read(fds_[0], bytes.data(), bytes.size()) > 0) {
        }
    }

private:
    std::array<int, 2> fds_{-1, -1};
};

}  // namespace kelvane
