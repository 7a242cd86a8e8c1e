#include "session_fixture.hpp"
#include "stepped_clock.hpp"

#include "platform/local_time.hpp"
#include "platform/worker_thread.hpp"

#include <gtest/gtest.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <csignal>
#include <fstream>
#include <pthread.h>
#include <regex>
#include <unistd.h>

using kelvane::processLogRoutedBy;
using kelvane::WorkerThread;
using kelvane::testing::fileText;
using kelvane::testing::SteppedClock;

namespace {

const std::string prefix = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} Kelvane\[\d+:\d+\] )";

// ICU's default locale and zone, set for one test and put back after it.
struct IcuDefaults {
    icu::Locale locale = icu::Locale::getDefault();
    std::unique_ptr<icu::TimeZone> zone{icu::TimeZone::createDefault()};
    UErrorCode status = U_ZERO_ERROR;
    IcuDefaults(const char* newLocale, const char* newZone) {
        icu::Locale::setDefault(icu::Locale(newLocale), status);
        icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone(newZone));
    }
    ~IcuDefaults() { icu::Locale::setDefault(locale, status), icu::TimeZone::adoptDefault(zone.release()); }
};

}  // namespace

// A file route appends; a line break is added only where the text lacks one ("\r" is none).
TEST(ProcessLog, RoutesToAFileOffOrStandardErrorWhenTheFileCannotBeOpened) {
    kelvane::testing::TemporaryDirectory root;
    auto path = root.path() / "process.log";
    std::ofstream(path) << "earlier\n";
    auto log = processLogRoutedBy(path.string());
    for (const char* line : {"first", "checkDUTSensor state is 1\n", "UP OK\r"}) log->write(line);
    EXPECT_TRUE(std::regex_match(fileText(path), std::regex("earlier\n" + prefix + "first\n" + prefix +
                                                            "checkDUTSensor state is 1\n" + prefix + "UP OK\r\n")))
        << fileText(path);

    ::testing::internal::CaptureStderr();
    processLogRoutedBy("off")->write("dropped");
    auto unopenable = root.path() / "no folder" / "process.log";
    processLogRoutedBy(unopenable.string())->write("still logged");
    EXPECT_TRUE(std::regex_match(
        ::testing::internal::GetCapturedStderr(),
        std::regex(prefix + "process log .*no folder/process.log: .*standard error\n" + prefix + "still logged\n")));
    EXPECT_FALSE(std::filesystem::exists(unopenable.parent_path()));
}

// The child's standard error is a pipe nobody reads: its writes fail with EPIPE. It must live on,
// with SIGPIPE neither blocked nor pending afterwards.
void logToAClosedStandardErrorAndExit() {
    int ends[2];
    if (::pipe(ends) != 0) std::_Exit(2);
    ::close(ends[0]);
    ::dup2(ends[1], STDERR_FILENO);
    auto log = processLogRoutedBy("stderr");
    for (int i = 0; i < 3; ++i) log->write("nobody reads this");
    sigset_t blocked, pending;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    sigpending(&pending);
    std::_Exit(sigismember(&blocked, SIGPIPE) || sigismember(&pending, SIGPIPE) ? 1 : 0);
}

TEST(ProcessLog, ClosedStandardErrorRaisesNoSignalInTheHost) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(logToAClosedStandardErrorAndExit(), ::testing::ExitedWithCode(0), "");
}

// The TEC worker's shape: a pass, then a 1.5 s pause, until cancelled. The owner drops a cancelled
// worker in the middle of its pause, as switching a slot off does.
TEST(WorkerThread, RunsUnderItsNameOnceAndOutlivesItsOwnerUntilItsBodyReturns) {
    SteppedClock clock;
    char osName[64] = "";
    auto worker = std::make_unique<WorkerThread>("Slot3_TecTempThread", [&](const WorkerThread::Handle& self) {
#if defined(__linux__) || defined(__APPLE__)
        pthread_getname_np(pthread_self(), osName, sizeof osName);
#endif
        while (!self.isCancelled()) clock.sleepFor(1.5);
    });
    EXPECT_FALSE(worker->isStarted());
    worker->handle().waitUntilFinished();  // never started: returns at once
    worker->start();
    EXPECT_THROW(worker->start(), kelvane::WorkerAlreadyStarted);
    clock.waitForSleepers(1);
    auto handle = worker->handle();
    worker->cancel();
    worker.reset();  // neither waits for the body nor frees what it still uses
    EXPECT_FALSE(handle.isFinished());
    clock.advance(1.5);
    handle.waitUntilFinished();
    EXPECT_TRUE(handle.isCancelled());
#if defined(__linux__)
    EXPECT_STREQ(osName, "Slot3_TecTempTh");  // the kernel keeps 15 characters
#elif defined(__APPLE__)
    EXPECT_STREQ(osName, "Slot3_TecTempThread");
#endif

    WorkerThread throwing("thrower", [](const WorkerThread::Handle&) { throw std::runtime_error("x"); });
    throwing.start();
    throwing.handle().waitUntilFinished();  // the exception ends the worker, not the process
}

// "YYYY" is the week-based year: 30 December 2024 lies in week 1 of 2025, 28 December does not.
TEST(LocalTime, FormsUseIcuPatternsInTheDefaultZone) {
    IcuDefaults defaults("en_US", "Europe/Berlin");
    const double december30 = 1735558496.789;  // 2024-12-30 11:34:56.789 UTC
    EXPECT_EQ(kelvane::formatLocalTime(december30, "MM/dd/yyyy HH:mm:ss.SSS"), "12/30/2024 12:34:56.789");
    EXPECT_EQ(kelvane::formatLocalTime(december30, "YYYY-MM-dd HH:mm:ss:SSSS"), "2025-12-30 12:34:56:7890");
    EXPECT_EQ(kelvane::formatLocalTime(december30 - 2 * 86400, "YYYY-MM-dd"), "2024-12-28");
}
