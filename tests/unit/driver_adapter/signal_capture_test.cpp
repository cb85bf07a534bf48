// The adapter's crash capture: a backtrace, the process still ends; the daemon's own signals kept.
#include "common/signal_capture.h"

#include "support/adapter.h"

TEST(SignalCapture, WritesTheBacktraceOfACrashAndLeavesTheDaemonsCaughtSignalsAlone)
{
    const auto handler_of = [](int sig) {
        struct sigaction sa{};
        sigaction(sig, nullptr, &sa);
        return sa.sa_handler;
    };
    testsupport::ScratchRoot root;
    const sighandler_t daemon_handler = [](int) {};
    for (int sig : {SIGPIPE, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH})
        signal(sig, daemon_handler);
    pSignalAddress = "/var/log/backtrace.txt";
    ASSERT_EQ(Signal_InitCapture(), 0);
    for (int sig : {SIGPIPE, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH})
        EXPECT_EQ(handler_of(sig), daemon_handler) << sig;
    const sighandler_t capture = handler_of(SIGSEGV);
    EXPECT_TRUE(capture != SIG_DFL && capture != daemon_handler);
    for (int sig : {SIGBUS, SIGFPE, SIGILL, SIGABRT})
        EXPECT_EQ(handler_of(sig), capture) << sig;

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        raise(SIGSEGV);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
    const std::string text = testsupport::read_file(root.at("/var/log/backtrace.txt"));
    EXPECT_TRUE(text.starts_with("catch crash signal: 11\n") && text.size() > 24) << text;  // and a backtrace
}
