// The real daemon under a scratch root: its start-up output and seat file, a
// loop that keeps passing, its notifications to a service manager, and one
// instance per root.
#include <sys/socket.h>
#include <sys/un.h>

#include <regex>

#include "support/system_common.h"

namespace {

using DaemonStart = testharness::DaemonTest;

// Voluntary context switches of the daemon's main thread: each select that waits adds one.
long main_thread_waits(pid_t pid)
{
    const std::string status =
        testsupport::read_file("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/status");
    const auto at = status.find("voluntary_ctxt_switches:");
    return at == std::string::npos ? -1 : std::stol(status.substr(at + 24));
}

// The banner line for line and the build time; a conversion in a seat file line logged as it
// stands, the sections after it still making the seats; with nothing to serve each pass waits
// out its one-second select; the key sound service (its socket made late under qemu-arm)
// waits for its audio client.
TEST_F(DaemonStart, PrintsItsBannerReadsPortConfFromItsWorkingDirectoryAndKeepsLooping)
{
    testsupport::write_port_conf(root_.at("/work"), std::string("StartSection %n%n%n%n\n") + testsupport::kExamplePortConf);
    launch();
    ASSERT_TRUE(daemon_->wait_for("Build time "));
    std::string full(61, '@'), blank = full;  // not "@" + std::string: a false -Wrestrict of GCC 12 at -O2
    blank.replace(1, 59, 59, ' ');
    const std::string banner = "\n" + full + "\n" + blank + "\n@                  Tactord - 17.0221.1137                  @\n" +
                               blank + "\n" + full + "\n\nBuild time ";
    const std::string out = daemon_->output();
    ASSERT_EQ(out.substr(0, banner.size()), banner);
    EXPECT_TRUE(std::regex_match(out.substr(banner.size(), out.find('\n', banner.size()) - banner.size()),
                                 std::regex(R"([A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2})")))
        << out;
    for (const char* line : {"parse error section %n%n%n%n is unsurpport\n", "path:usb-musb-hdrc.0-1----seat:5\n",
                             "screen:1 ______ 2\n", "nice is "})
        EXPECT_TRUE(daemon_->wait_for(line)) << line;
    const long first = main_thread_waits(pid());
    ASSERT_GE(first, 0);
    EXPECT_TRUE(testsupport::eventually([&] { return main_thread_waits(pid()) >= first + 3; }, 15s));
    EXPECT_GE(testharness::connect_unix("/tmp/UNIX2.domain.audio"), 0);
    EXPECT_TRUE(testsupport::wait_for_file_text(root_.at("/tmp/audio-server.txt"), "Audio unix client connected...\r\n"));
    EXPECT_TRUE(daemon_->alive());
}

// READY=1 once the control socket accepts (one connection attempt), then WATCHDOG=1 at the
// manager's period, on an abstract socket named "@name" in $NOTIFY_SOCKET. A second instance
// exits 1 naming the first, whose log is not rotated away; unknown options are skipped, each
// with a warning on standard error.
TEST_F(DaemonStart, ReportsReadyKeepsAliveAndLeavesTheFirstInstanceAndItsLogAlone)
{
    const std::string name = "tactord-test-notify-" + std::to_string(getpid());
    const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    name.copy(addr.sun_path + 1, sizeof addr.sun_path - 1);
    ASSERT_EQ(bind(manager, reinterpret_cast<sockaddr*>(&addr), offsetof(sockaddr_un, sun_path) + 1 + name.size()), 0);
    const timeval wait{10, 0};
    setsockopt(manager, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    const auto next_notification = [&] {
        char buf[64];
        const ssize_t n = recv(manager, buf, sizeof buf, 0);
        return std::string(buf, n > 0 ? static_cast<std::size_t>(n) : 0);
    };
    setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    setenv("WATCHDOG_USEC", "1000000", 1);
    launch({"-p", "1", "-i", "0", "--frobnicate"});
    unsetenv("WATCHDOG_USEC");
    unsetenv("NOTIFY_SOCKET");
    ASSERT_EQ(next_notification(), "READY=1");
    testharness::DisplayClient client(root_.path(), 1ms);
    EXPECT_TRUE(client.connected() && testharness::round_trip(client, 1));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(next_notification(), "WATCHDOG=1") << i;
    EXPECT_TRUE(daemon_->wait_for("tactord: ignoring unknown option '--frobnicate' (tactord --help lists the options)\n"));
    const std::string log = root_.at("/var/log/tactord.log");
    ASSERT_TRUE(std::filesystem::exists(log));  // opened at the banner
    // The second instance is the binary under test too (the target's under qemu-arm).
    emul::DaemonProcess second(root_.at("/work"), {"-p", "1", "-i", "0"});
    int status = 0;
    ASSERT_EQ(waitpid(second.pid(), &status, 0), second.pid());
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1);
    const std::string refusal = "tactord is already running (pid " + std::to_string(pid()) + ")\n";
    EXPECT_TRUE(second.wait_for(refusal));
    EXPECT_EQ(second.output(), refusal);
    EXPECT_FALSE(std::filesystem::exists(log + ".old")) << "the first's log was rotated";
    EXPECT_TRUE(testharness::round_trip(client, 2));
    close(manager);
}

}  // namespace
