// Setting TEC monitoring up, switching a slot's worker on and off, the worker's loop, and
// stopping the workers when the session is closed.
#include "tec/monitor.hpp"

#include "can/bridge.hpp"
#include "tec/files.hpp"
#include <kelvane/protocol/can_bus.hpp>
#include <kelvane/protocol/tec_csv.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <functional>

namespace kelvane::tec {
namespace {

constexpr std::int64_t canBitRate = 500000;
constexpr double pauseBetweenPassesSeconds = 1.5;

// The monitor whose worker runs on this thread, if any: close() called from there must not
// wait for the worker it runs on.
thread_local const TecMonitor* workerMonitorOfThisThread = nullptr;

std::string workerName(std::int32_t slot) { return fmt::format("Slot{}_TecTempThread", slot); }

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

Value canMessageId(std::int32_t slot) { return Value(static_cast<std::uint32_t>(can::tecMessageId(slot))); }

bool TecMonitor::setUpTecMonitoring(std::int32_t slotCount) {
    LogSink& log = *platform_.log;
    const can::Bridge bridge{platform_, controller_.get(), identifier_.get()};
    if (!bridge.openChannel(Value(canBitRate))) {
        log.write("need TEC,Config Can fail.");
        return false;
    }
    log.write("need TEC,Config Can success.");
    tecTempLogPath.set("");
    tecTempThreadArray_.emplace();
    tecTempThreadArray_->reserve(static_cast<std::size_t>(std::max(slotCount, 0)));
    Value itemNames = Value::array(), stableFlags = Value::array(), warmUpPasses = Value::array();
    for (std::int32_t i = 0; i < slotCount; ++i) {
        itemNames.push_back("NOT SET");
        stableFlags.push_back("YES");
        warmUpPasses.push_back(0);
    }
    tables_.setTable(SlotTables::itemNames, std::move(itemNames));
    tables_.setTable(SlotTables::stableFlags, std::move(stableFlags));
    tables_.setTable(SlotTables::warmUpPasses, std::move(warmUpPasses));
    return true;
}

void TecMonitor::tecTempGet(std::int32_t slot, const std::string& state, std::weak_ptr<const void> owner) {
    LogSink& log = *platform_.log;
    const std::string word = upperCased(state);
    auto& workers = tecTempThreadArray_;
    if (word == "ON" || word == "OFF") {
        log.write(fmt::format("TesterReporting Slot{} tecTempRecord state:{}", slot, state));
    }
    if (word == "ON") {
        // Under the records' own lock, so a pass of another slot appending a record meanwhile
        // cannot tear the array; the order of events is the same as without it.
        records_.clear();
        creatTecTempThread(slot, std::move(owner));
        if (workers) {
            startWorkers(*workers, workerName(slot), log,
                         [&] { saveTecTemplog(slot, std::string(csvHeader) + std::string(csvLineEnd)); });
        }
    } else if (word == "OFF" && workers) {
        cancelWorkers(*workers, workerName(slot), log);
    }
    log.write(fmt::format("After tecTempGet {}--->>>tecTempThreadArray is {}", state, describeWorkers(workers)));
}

void TecMonitor::creatTecTempThread(std::int32_t slot, std::weak_ptr<const void> owner) {
    // The worker keeps the owner alive while its loop runs and lets go when it ends. Until it
    // starts it holds the owner only weakly: the owner holds the worker, and a worker that is
    // never started (a second switch-on) must not keep the two alive for ever.
    auto worker = std::make_shared<WorkerThread>(
        workerName(slot), [this, owner = std::move(owner), slot](const WorkerThread::Handle& self) {
            if (auto held = owner.lock()) runWorker(self, slot);
        });
    if (!tecTempThreadArray_) return;  // no set-up: the worker is neither kept nor started
    tecTempThreadArray_->push_back(worker);
    std::lock_guard lock(workersMutex_);
    // Done with: ended, or switched off before it ever started.
    const auto done = [](const std::shared_ptr<WorkerThread>& w) {
        return w->handle().isFinished() || (w->isCancelled() && !w->isStarted());
    };
    liveWorkers_.erase(std::remove_if(liveWorkers_.begin(), liveWorkers_.end(), done), liveWorkers_.end());
    liveWorkers_.push_back(std::move(worker));
    // A monitor closed meanwhile gets no running worker.
    if (closed_) liveWorkers_.back()->cancel();
}

// The pause between passes ends at once when the worker is cancelled (switched off, or its
// session closed); a pass under way runs to its end. The running line is written outside the
// object lock, the pass inside it.
void TecMonitor::runWorker(const WorkerThread::Handle& self, std::int32_t slot) {
    workerMonitorOfThisThread = this;
    const Value messageId = canMessageId(slot);
    while (!self.isCancelled()) {
        saveTecMonitorLogInfo(
            slot, fmt::format("TesterReporting {} Slot{} tecTempRecord running", describe(identifier_.get()), slot));
        tecTempRecord(slot, messageId);
        if (self.isCancelled()) break;
        platform_.clock->sleepUnlessCancelled(pauseBetweenPassesSeconds, self.cancelSignal());
    }
    workerMonitorOfThisThread = nullptr;
}

void TecMonitor::saveTecMonitorLogInfo(std::int32_t slot, const std::string& text) const {
    TecFiles{platform_, identifier_.get()}.appendMonitorLine(slot, text);
}

void TecMonitor::saveTecTemplog(std::int32_t slot, const std::string& text) const {
    TecFiles{platform_, identifier_.get()}.appendCsv(slot, text);
}

void TecMonitor::close() {
    std::vector<std::shared_ptr<WorkerThread>> workers;
    {
        std::lock_guard lock(workersMutex_);
        closed_ = true;
        workers.swap(liveWorkers_);
    }
    for (const auto& worker : workers) worker->cancel();
    if (workerMonitorOfThisThread == this) return;
    for (const auto& worker : workers) worker->handle().waitUntilFinished();
}

}  // namespace kelvane::tec
