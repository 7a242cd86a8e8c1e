#include "session_fixture.hpp"

#include "platform/process_log.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <regex>
#include <sstream>
#include <unistd.h>

using kelvane::processLogRoutedBy;

namespace {

std::string fileText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

const std::string prefix = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} Kelvane\[\d+:\d+\] )";

}  // namespace

// A file route appends; a line break is added only where the text lacks one ("\r" is none).
TEST(ProcessLog, RoutesToAFileOffOrStandardErrorWhenTheFileCannotBeOpened) {
    kelvane::testing::TemporaryDirectory root;
    auto path = root.path() / "process.log";
    std::ofstream(path) << "earlier\n";
    auto log = processLogRoutedBy(path.string());
    log->write("first");
    log->write("checkDUTSensor state is 1\n");
    log->write("UP OK\r");
    EXPECT_TRUE(std::regex_match(fileText(path), std::regex("earlier\n" + prefix + "first\n" + prefix +
                                                            "checkDUTSensor state is 1\n" + prefix + "UP OK\r\n")))
        << fileText(path);

    ::testing::internal::CaptureStderr();
    processLogRoutedBy("off")->write("dropped");
    auto unopenable = root.path() / "no folder" / "process.log";
    processLogRoutedBy(unopenable.string())->write("still logged");
    EXPECT_TRUE(std::regex_match(::testing::internal::GetCapturedStderr(),
                                 std::regex(prefix + "KELVANE_LOG=.*no folder/process.log: .*standard error\n" +
                                            prefix + "still logged\n")));
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
    sigset_t blocked;
    sigset_t pending;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    sigpending(&pending);
    std::_Exit(sigismember(&blocked, SIGPIPE) || sigismember(&pending, SIGPIPE) ? 1 : 0);
}

TEST(ProcessLog, ClosedStandardErrorRaisesNoSignalInTheHost) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(logToAClosedStandardErrorAndExit(), ::testing::ExitedWithCode(0), "");
}
