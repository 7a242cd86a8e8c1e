#include "platform/worker_thread.hpp"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <thread>

namespace kelvane {
namespace {

#if defined(__linux__)
constexpr std::size_t osThreadNameLength = 15;
#else
constexpr std::size_t osThreadNameLength = 63;
#endif

void nameCurrentThread(const std::string& name) {
    const std::string shortened = name.substr(0, osThreadNameLength);
#if defined(__APPLE__)
    pthread_setname_np(shortened.c_str());
#elif defined(__linux__)
    pthread_setname_np(pthread_self(), shortened.c_str());
#else
    (void)shortened;
#endif
}

}  // namespace

// Shared by the WorkerThread, its handles and the running thread, so a worker dropped by its
// owner while it runs still has its flags until the body returns.
struct WorkerThread::State {
    explicit State(std::string workerName) : name(std::move(workerName)) {}

    void markFinished() {
        std::lock_guard lock(mutex);
        finished = true;
        finishedChanged.notify_all();
    }

    const std::string name;
    std::atomic<bool> started{false};
    CancelSignal cancelled;
    mutable std::mutex mutex;
    mutable std::condition_variable finishedChanged;
    bool finished = false;  // guarded by mutex
};

bool WorkerThread::Handle::isCancelled() const { return state_->cancelled.isCancelled(); }

const CancelSignal& WorkerThread::Handle::cancelSignal() const { return state_->cancelled; }

bool WorkerThread::Handle::isFinished() const {
    std::lock_guard lock(state_->mutex);
    return state_->finished;
}

void WorkerThread::Handle::waitUntilFinished() const {
    std::unique_lock lock(state_->mutex);
    state_->finishedChanged.wait(lock, [this] { return state_->finished || !state_->started; });
}

WorkerThread::WorkerThread(std::string name, Body body)
    : state_(std::make_shared<State>(std::move(name))), body_(std::move(body)) {}

WorkerThread::~WorkerThread() = default;

const std::string& WorkerThread::name() const { return state_->name; }

void WorkerThread::start() {
    if (state_->started.exchange(true)) {
        throw WorkerAlreadyStarted("worker " + state_->name + " is already started");
    }
    try {
        std::thread([state = state_, body = std::move(body_)] {
            nameCurrentThread(state->name);
            try {
                body(Handle(state));
            } catch (...) {
                // Nothing is there to take it; letting it out would end the host.
            }
            state->markFinished();
        }).detach();
    } catch (...) {
        state_->markFinished();
        throw;
    }
}

bool WorkerThread::isStarted() const { return state_->started.load(); }

void WorkerThread::cancel() { state_->cancelled.cancel(); }

bool WorkerThread::isCancelled() const { return state_->cancelled.isCancelled(); }

WorkerThread::Handle WorkerThread::handle() const { return Handle(state_); }

}  // namespace kelvane
