// Switching a slot's TEC worker on and off, the worker's loop, and stopping the workers of a
// closed session.
#include "tec/monitor.hpp"

#include "session/fixture_control_private.hpp"
#include "tec/sampling.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <optional>

namespace kelvane {
namespace {

constexpr double pauseBetweenPassesSeconds = 1.5;
constexpr std::string_view csvHeader =
    "Timestamp,Sensor1,Sensor2,Sensor3,Sensor4,PWM,Current,subsubtestname\r\n";

// The session whose worker runs on this thread, if any: close() called from there must not
// wait for the worker it runs on.
thread_local const FixtureControl* workerSessionOfThisThread = nullptr;

std::string workerName(std::int32_t slot) { return fmt::format("Slot{}_TecTempThread", slot); }

// The pause between passes ends at once when the worker is cancelled (switched off, or its
// session closed); a pass under way runs to its end.
void runWorker(FixtureControl& session, Clock& clock, const WorkerThread::Handle& self,
               std::int32_t slot) {
    workerSessionOfThisThread = &session;
    const Value messageId = tec::canMessageId(slot);
    while (!self.isCancelled()) {
        session.saveTecMonitorLogInfo(
            slot, fmt::format("TesterReporting {} Slot{} tecTempRecord running",
                              describe(session.identifier()), slot));
        session.tecTempRecord(slot, messageId);
        if (self.isCancelled()) break;
        clock.sleepUnlessCancelled(pauseBetweenPassesSeconds, self.cancelSignal());
    }
    workerSessionOfThisThread = nullptr;
}

using Workers = std::vector<std::shared_ptr<WorkerThread>>;

std::string describeWorkers(const std::optional<Workers>& workers) {
    if (!workers) return describe(Value());
    Value names = Value::array();
    for (const auto& worker : *workers) names.push_back(worker->name());
    return describe(names);
}

// Starts every worker of the name, each after `writeHeader`. By index: a start that throws
// leaves the array as it is.
void startWorkers(const Workers& workers, const std::string& name, LogSink& log,
                  const std::function<void()>& writeHeader) {
    for (std::size_t i = 0; i < workers.size(); ++i) {
        const auto worker = workers[i];
        log.write("TesterReporting thread name:" + worker->name());
        if (worker->name() != name) continue;
        writeHeader();
        worker->start();  // throws WorkerAlreadyStarted for a worker that runs already
    }
}

// The index moves on after a removal, so of two workers of the name side by side only the first
// is stopped: the station relies on that.
void cancelWorkers(Workers& workers, const std::string& name, LogSink& log) {
    for (std::size_t i = 0; i < workers.size(); ++i) {
        if (workers[i]->name() != name) continue;
        if (workers[i]->isCancelled()) {
            log.write(name + " is Cancelled");
        } else {
            workers[i]->cancel();
        }
        workers.erase(workers.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

}  // namespace

void FixtureControl::tecTempGet(std::int32_t slot, const std::string& state) {
    const std::string word = upperCased(state);
    auto& workers = d_->tecTempThreadArray;
    if (word == "ON" || word == "OFF") {
        log(fmt::format("TesterReporting Slot{} tecTempRecord state:{}", slot, state));
    }
    if (word == "ON") {
        // Under the records' own lock, so a pass of another slot appending a record meanwhile
        // cannot tear the array; the order of events is the same as without it.
        d_->failureRecords().clear();
        creatTecTempThread(slot);
        if (workers) {
            startWorkers(*workers, workerName(slot), *d_->platform.log,
                         [&] { saveTecTemplog(slot, std::string(csvHeader)); });
        }
    } else if (word == "OFF" && workers) {
        cancelWorkers(*workers, workerName(slot), *d_->platform.log);
    }
    log(fmt::format("After tecTempGet {}--->>>tecTempThreadArray is {}", state,
                    describeWorkers(workers)));
}

void FixtureControl::creatTecTempThread(std::int32_t slot) {
    // The worker keeps the session alive while its loop runs and lets go when it ends. Until it
    // starts it holds the session only weakly: the session holds the worker, and a worker that
    // is never started (a second switch-on) must not keep the two alive for ever.
    auto worker = std::make_shared<WorkerThread>(
        workerName(slot), [weakSession = weak_from_this(), clock = d_->platform.clock,
                           slot](const WorkerThread::Handle& self) {
            if (auto session = weakSession.lock()) runWorker(*session, *clock, self, slot);
        });
    if (!d_->tecTempThreadArray) return;  // no set-up: the worker is neither kept nor started
    d_->tecTempThreadArray->push_back(worker);
    std::lock_guard lock(d_->workersMutex);
    auto& live = d_->liveWorkers;
    // Done with: ended, or switched off before it ever started.
    const auto done = [](const std::shared_ptr<WorkerThread>& w) {
        return w->handle().isFinished() || (w->isCancelled() && !w->isStarted());
    };
    live.erase(std::remove_if(live.begin(), live.end(), done), live.end());
    live.push_back(std::move(worker));
    // A session closed meanwhile gets no running worker.
    if (d_->closed) live.back()->cancel();
}

namespace tec {

void stopWorkers(const std::vector<std::shared_ptr<WorkerThread>>& workers,
                 const FixtureControl& session) {
    for (const auto& worker : workers) worker->cancel();
    if (workerSessionOfThisThread == &session) return;
    for (const auto& worker : workers) worker->handle().waitUntilFinished();
}

}  // namespace tec
}  // namespace kelvane
