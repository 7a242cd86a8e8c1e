// The services the library takes from its surroundings, each replaceable so that a host or a
// test can supply its own: time, the process log, the file-system root, the RPC transport and
// the trace of its calls.
#pragma once

#include <kelvane/RpcClient.hpp>
#include <kelvane/export.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvane {

// Ends a sleep early: a worker's pause ends as soon as the worker is cancelled. Raised once, it
// stays raised. Every member is safe from any thread.
class KELVANE_API CancelSignal {
public:
    CancelSignal() = default;
    CancelSignal(const CancelSignal&) = delete;
    CancelSignal& operator=(const CancelSignal&) = delete;

    // Raises the signal and runs the waker, if one is set, on the calling thread.
    void cancel();
    bool isCancelled() const;
    // Waits in real time until the signal is raised or `seconds` have passed; true when raised.
    bool waitFor(double seconds) const;
    // For a clock whose sleepers wait on something of their own (virtual time): `wake` runs
    // whenever the signal is raised while it is set, and must not take a lock that is held
    // while isCancelled() is read. setWaker(nullptr) removes it; once that returns, it no longer
    // runs.
    void setWaker(std::function<void()> wake) const;

private:
    std::atomic<bool> cancelled_{false};
    mutable std::mutex mutex_;
    mutable std::condition_variable raised_;
    mutable std::function<void()> wake_;  // guarded by mutex_
};

// Time and sleeping. Poll loops and worker pauses go through it. Host threads and TEC workers
// call one clock at once: an implementation is safe from any thread.
class KELVANE_API Clock {
public:
    virtual ~Clock();
    // Wall-clock seconds since 1970: only for time stamps a person reads (logs, CSV lines).
    virtual double now() = 0;
    // Seconds on a clock that never jumps (a time sync does not move it), from an arbitrary
    // start: for deadlines and "how long has passed".
    virtual double monotonic() = 0;
    virtual void sleepFor(double seconds) = 0;
    // Sleeps as sleepFor, but returns as soon as `cancel` is raised, at once when it already
    // is. The default suits a clock that cannot be woken: it sleeps the whole time unless the
    // signal is raised before the sleep begins.
    virtual void sleepUnlessCancelled(double seconds, const CancelSignal& cancel);
};

KELVANE_API std::shared_ptr<Clock> systemClock();

// The process log: one line per step, no levels. Host threads and TEC workers write to one log
// at once: an implementation is safe from any thread.
class KELVANE_API LogSink {
public:
    virtual ~LogSink();
    virtual void write(std::string_view line) = 0;
};

// The library's process log, sent where `route` says: "stderr" (or the empty route) to standard
// error, "off" nowhere, anything else to that file, appended to (created if missing, its folder
// not). Each line is prefixed by time, process id and thread id, and ended by a line break unless
// the text ends in one. A file that cannot be opened leaves the log on standard error, which
// first gets one line saying so. A line that cannot be written is dropped, and a closed standard
// error raises no SIGPIPE in the host.
KELVANE_API std::shared_ptr<LogSink> processLogRoutedBy(std::string_view route);

// The process's default log: routed by the host's environment variable KELVANE_LOG (unset is
// "stderr"), read once, when this log is first asked for; every caller shares it.
KELVANE_API std::shared_ptr<LogSink> defaultProcessLog();

// Keeps every line in memory, in order; for tests and for hosts that show the log themselves.
// Every member is safe from any thread.
class KELVANE_API CapturingLog final : public LogSink {
public:
    void write(std::string_view line) override;
    std::vector<std::string> lines() const;
    void clear();

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

// A trace file: one JSON line per controller call (docs/trace.md). Defined inside the library.
class TraceWriter;

// The trace file at `path`, shared by every client of this process that traces into that path.
// Once it would pass `maxBytes` it is moved to "<path>.1" and begun anew; the limit is the one
// given when the path was first asked for while no one held its writer.
KELVANE_API std::shared_ptr<TraceWriter> traceFile(const std::filesystem::path& path, std::uint64_t maxBytes);

// A session's services. The session copies its Platform when it is made and only reads it
// after; the clock and the log it holds are called from host threads and TEC workers at once.
struct KELVANE_API Platform {
    // Left empty, a session takes the system clock and defaultProcessLog().
    std::shared_ptr<Clock> clock;
    std::shared_ptr<LogSink> log;
    // The station's fixed paths ("/vault/...", "/Users/stnuser/...") are opened below this root.
    std::filesystem::path fileRoot = "/";
    // Makes the transport in place of the ZeroMQ client (a test's fake controller, say); it may
    // make none, which fails the connection as a silent controller does. Empty: the ZeroMQ client.
    RpcClientFactory connect;
    // Where the calls of the clients made by clientFor() are traced, stamped with `clock`;
    // null: no trace.
    std::shared_ptr<TraceWriter> trace = nullptr;
    // How long the ZeroMQ client waits for the reply to a call that gives no "timeout_ms";
    // empty: 3000 ms.
    std::optional<std::chrono::milliseconds> callTimeout = std::nullopt;

    // The system clock, the default log (defaultProcessLog()), "/", the ZeroMQ client, and the
    // trace the host's environment asks for, read at each call: KELVANE_TRACE names the file and
    // KELVANE_TRACE_MAX_MB its size limit in MiB (64 when unset).
    static Platform defaults();

    // The client of the controller at ip:port, as a session makes it: the ZeroMQ client (or the
    // one `connect` makes), wrapped so that each of its calls is traced when there is a `trace`.
    // Null when `connect` makes none or the address is not one ZeroMQ can connect to.
    std::shared_ptr<RpcClient> clientFor(const std::string& ip, std::uint32_t port) const;

    // The path of a fixed station path below `fileRoot`.
    std::filesystem::path resolve(std::string_view stationPath) const;
};

}  // namespace kelvane
