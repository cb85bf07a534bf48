#include "common/signal_capture.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "support/scratch_root.h"

namespace {

void daemon_handler(int) {}

sighandler_t current_handler(int sig)
{
    struct sigaction sa{};
    sigaction(sig, nullptr, &sa);
    return sa.sa_handler;
}

TEST(SignalCapture, TakesOverCrashSignalsAndLeavesTheDaemonsCaughtSignalsAlone)
{
    constexpr std::array<int, 5> daemon_signals = {SIGPIPE, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH};
    for (int sig : daemon_signals)
        signal(sig, daemon_handler);
    pSignalAddress = "/var/log/backtrace.txt";
    ASSERT_EQ(Signal_InitCapture(), 0);

    for (int sig : daemon_signals)
        EXPECT_EQ(current_handler(sig), daemon_handler) << sig;
    const sighandler_t capture = current_handler(SIGSEGV);
    EXPECT_NE(capture, SIG_DFL);
    EXPECT_NE(capture, daemon_handler);
    for (int sig : {SIGBUS, SIGFPE, SIGILL, SIGABRT})
        EXPECT_EQ(current_handler(sig), capture) << sig;
}

TEST(SignalCapture, WritesTheBacktraceOfACrashAndStillEndsTheProcess)
{
    testsupport::ScratchRoot root;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        pSignalAddress = "/var/log/backtrace.txt";
        Signal_InitCapture();
        raise(SIGSEGV);
        _exit(0);  // not reached
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(WTERMSIG(status), SIGSEGV);
    const std::string text = testsupport::read_file(root.at("/var/log/backtrace.txt"));
    EXPECT_EQ(text.rfind("catch crash signal: 11\n", 0), 0u) << text;
    EXPECT_GT(text.size(), std::string("catch crash signal: 11\n\n").size());
}

}  // namespace
