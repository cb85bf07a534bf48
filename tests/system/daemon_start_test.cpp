// Starts the real daemon under a scratch root and checks what it prints on
// standard output at start-up and that its loop keeps passing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "support/scratch_root.h"

namespace {

using Clock = std::chrono::steady_clock;

// The daemon as a child process with its standard output on a pipe. The child
// is killed and reaped when the object goes.
class Daemon {
public:
    Daemon(const std::string& workdir, std::vector<std::string> args)
    {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0)
            return;
        args.insert(args.begin(), TACTORD_BINARY);
        std::vector<char*> argv;
        for (auto& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(out[1], STDOUT_FILENO);
            if (chdir(workdir.c_str()) == 0)
                execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        out_ = out[0];
    }
    ~Daemon()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (out_ >= 0)
            close(out_);
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    pid_t pid() const { return pid_; }
    bool alive() const { return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0; }

    // The next line of standard output without its "\n"; false at end of
    // output or when none arrives within the time left.
    bool read_line(std::string& line, std::chrono::seconds limit = std::chrono::seconds(10))
    {
        const auto deadline = Clock::now() + limit;
        for (;;) {
            if (const auto nl = pending_.find('\n'); nl != std::string::npos) {
                line = pending_.substr(0, nl);
                pending_.erase(0, nl + 1);
                return true;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd pfd{out_, POLLIN, 0};
            if (left.count() <= 0 || poll(&pfd, 1, static_cast<int>(left.count())) <= 0)
                return false;
            char buf[512];
            const ssize_t n = read(out_, buf, sizeof buf);
            if (n <= 0)
                return false;
            pending_.append(buf, static_cast<size_t>(n));
        }
    }

    // Reads lines until one starts with prefix; false if none does in time.
    bool skip_to(const std::string& prefix, std::string& line)
    {
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (Clock::now() < deadline) {
            if (!read_line(line, std::chrono::duration_cast<std::chrono::seconds>(deadline - Clock::now())))
                return false;
            if (line.rfind(prefix, 0) == 0)
                return true;
        }
        return false;
    }

    // Voluntary context switches of the main thread: every select that times
    // out or waits adds one.
    long main_thread_waits() const
    {
        const std::string status =
            testsupport::read_file("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid_) + "/status");
        const auto at = status.find("voluntary_ctxt_switches:");
        return at == std::string::npos ? -1 : std::stol(status.substr(at + 24));
    }

private:
    pid_t pid_ = -1;
    int out_ = -1;
    std::string pending_;
};

const char* const kPortConf =
    "StartSection \"Terminal\"\n  Screen 0\n  InputDevice 5\n  InputDevice 1\nEndSection\n"
    "StartSection \"Terminal\"\n  Screen 1\n  InputDevice 2\nEndSection\n"
    "StartSection \"Input\"\n  usb-musb-hdrc.1-1.1 1\n  usb-musb-hdrc.1-1.2 2\n  usb-musb-hdrc.0-1 5\nEndSection\n";

class DaemonStart : public testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directories(workdir);
        testsupport::write_file(workdir + "/port.conf", kPortConf);
    }
    void expect_banner(Daemon& daemon)
    {
        const std::string full(61, '@');
        const std::string blank = "@" + std::string(59, ' ') + "@";
        const std::string title = "@                  Tactord - 17.0221.1137                  @";
        for (const std::string& expected : {std::string(), full, blank, title, blank, full, std::string()}) {
            std::string line;
            ASSERT_TRUE(daemon.read_line(line));
            EXPECT_EQ(line, expected);
        }
        std::string line;
        ASSERT_TRUE(daemon.read_line(line));
        EXPECT_TRUE(std::regex_match(line, std::regex(R"(Build time [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2})")))
            << line;
    }
    testsupport::ScratchRoot root;
    const std::string workdir = root.at("/run");
};

TEST_F(DaemonStart, PrintsTheBannerOnStandardOutputAndKeepsLooping)
{
    Daemon daemon(workdir, {"-p", "0"});
    ASSERT_GT(daemon.pid(), 0);
    expect_banner(daemon);

    // With nothing to serve, each pass waits out its one-second select.
    const long first = daemon.main_thread_waits();
    ASSERT_GE(first, 0);
    const auto deadline = Clock::now() + std::chrono::seconds(15);
    while (daemon.main_thread_waits() < first + 3 && Clock::now() < deadline)
        usleep(200000);
    EXPECT_GE(daemon.main_thread_waits(), first + 3);
    EXPECT_TRUE(daemon.alive());
}

TEST_F(DaemonStart, ReadsPortConfFromItsWorkingDirectory)
{
    Daemon daemon(workdir, {"-p", "0", "-d", "0", "-i", "0"});
    ASSERT_GT(daemon.pid(), 0);
    expect_banner(daemon);
    std::string line;
    ASSERT_TRUE(daemon.skip_to("path:usb-musb-hdrc.0-1", line));
    EXPECT_EQ(line, "path:usb-musb-hdrc.0-1----seat:5");
    ASSERT_TRUE(daemon.skip_to("screen:1", line));
    EXPECT_EQ(line, "screen:1 ______ 2");
    ASSERT_TRUE(daemon.skip_to("nice is ", line));
    EXPECT_TRUE(daemon.alive());
}

}  // namespace
