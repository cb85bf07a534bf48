// The real daemon under a scratch root: its start-up output, a loop that keeps passing, its seat file,
// its notifications to a service manager, and one instance per root.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <regex>
#include <string>

#include "common/usb_gun/unixsocket.h"
#include "harness/display_client.h"
#include "harness/drill.h"
#include "sim/daemon_process.h"
#include "support/remote_link.h"
#include "support/scratch_root.h"
#include "support/shell.h"

namespace {

using namespace std::chrono_literals;

// A service manager's notification socket in the abstract namespace, named
// to the daemon as $NOTIFY_SOCKET "@name"; a read waits at most 10 s.
int notify_socket()
{
    const std::string name = "tactord-test-notify-" + std::to_string(getpid());
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    name.copy(addr.sun_path + 1, sizeof addr.sun_path - 1);
    const timeval wait{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    const auto len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return bind(fd, reinterpret_cast<sockaddr*>(&addr), len) == 0 ? fd : -1;
}

std::string next_notification(int fd)
{
    char buf[64];
    const ssize_t n = recv(fd, buf, sizeof buf, 0);
    return std::string(buf, n > 0 ? static_cast<std::size_t>(n) : 0);
}

// Voluntary context switches of the daemon's main thread: every select that
// waits adds one, so the count keeps moving while the loop passes.
long main_thread_waits(pid_t pid)
{
    const std::string status =
        testsupport::read_file("/proc/" + std::to_string(pid) + "/task/" + std::to_string(pid) + "/status");
    const auto at = status.find("voluntary_ctxt_switches:");
    return at == std::string::npos ? -1 : std::stol(status.substr(at + 24));
}

// The output starts with the banner, line for line.
void expect_banner(const emul::DaemonProcess& daemon)
{
    ASSERT_TRUE(daemon.wait_for("Build time "));
    const std::string full(61, '@'), blank = "@" + std::string(59, ' ') + "@";
    const std::string title = "@                  Tactord - 17.0221.1137                  @";
    const std::string expected = "\n" + full + "\n" + blank + "\n" + title + "\n" + blank + "\n" + full + "\n\n";
    const std::string out = daemon.output();
    ASSERT_EQ(out.substr(0, expected.size()), expected);
    const std::string build = out.substr(expected.size(), out.find('\n', expected.size()) - expected.size());
    EXPECT_TRUE(std::regex_match(
        build, std::regex(R"(Build time [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2})")))
        << build;
}

TEST(DaemonStart, PrintsTheBannerOnStandardOutputAndKeepsLooping)
{
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/run"));
    emul::DaemonProcess daemon(root.at("/run"), {"-p", "0", "-i", "0"});
    ASSERT_TRUE(daemon.started());
    expect_banner(daemon);

    // With nothing to serve, each pass waits out its one-second select.
    const long first = main_thread_waits(daemon.pid());
    ASSERT_GE(first, 0);
    EXPECT_TRUE(testsupport::eventually([&] { return main_thread_waits(daemon.pid()) >= first + 3; }, 15s));
    EXPECT_TRUE(daemon.alive());
    // The key sound service waits for its audio client; its own thread sets
    // up the socket, which under qemu-arm may come after the passes above.
    EXPECT_TRUE(testsupport::eventually([] { return unix_client_open("/tmp/UNIX2.domain.audio") > 0; }, 10s));
    EXPECT_TRUE(testsupport::wait_for_file_text(root.at("/tmp/audio-server.txt"), "Audio unix client connected...\r\n"));
}

// A conversion in a line is logged as it stands; the sections after it still make the seats.
TEST(DaemonStart, ReadsPortConfFromItsWorkingDirectoryAndLogsConversionsAsTheyStand)
{
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/run"), std::string("StartSection %n%n%n%n\n") + testsupport::kExamplePortConf);
    emul::DaemonProcess daemon(root.at("/run"), {"-p", "0", "-d", "0", "-i", "0"});
    for (const char* line : {"parse error section %n%n%n%n is unsurpport\n", "path:usb-musb-hdrc.0-1----seat:5\n",
                             "screen:1 ______ 2\n", "nice is "})
        EXPECT_TRUE(daemon.wait_for(line)) << line;
    EXPECT_TRUE(daemon.alive());
}

TEST(DaemonStart, ReportsReadyOnceTheControlSocketAcceptsAndThenKeepsAlive)
{
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/run"));
    const int manager = notify_socket();
    ASSERT_GE(manager, 0);
    setenv("WATCHDOG_USEC", "1000000", 1);
    emul::DaemonProcess daemon(root.at("/run"));
    unsetenv("WATCHDOG_USEC");
    ASSERT_EQ(next_notification(manager), "READY=1");
    testharness::DisplayClient client(root.path(), 1ms);  // one attempt, no waiting
    EXPECT_TRUE(client.connected() && testharness::round_trip(client, 1));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(next_notification(manager), "WATCHDOG=1") << i;
    unsetenv("NOTIFY_SOCKET");
    close(manager);
}

TEST(DaemonStart, ASecondInstanceOnTheSameRootLeavesTheFirstAndItsLogAlone)
{
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/run"));
    // Unknown options are skipped, each with a warning on standard error.
    emul::DaemonProcess first(root.at("/run"), {"-p", "1", "-i", "0", "--frobnicate"});
    ASSERT_TRUE(first.started());
    EXPECT_TRUE(first.wait_for("tactord: ignoring unknown option '--frobnicate' (tactord --help lists the options)\n"));
    testharness::DisplayClient client(root.path());
    // Opened at the banner (its text still in the stream's buffer).
    const std::string log = root.at("/var/log/tactord.log");
    ASSERT_TRUE(std::filesystem::exists(log));

    const auto [out, status] = testsupport::run_command("cd " + root.at("/run") + " && " TACTORD_BINARY " -p 1 -i 0");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, "tactord is already running (pid " + std::to_string(first.pid()) + ")\n");
    EXPECT_FALSE(std::filesystem::exists(log + ".old")) << "the first's log was rotated";
    EXPECT_TRUE(testharness::round_trip(client, 1));
}

}  // namespace
