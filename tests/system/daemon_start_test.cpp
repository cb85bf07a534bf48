// Starts the real daemon under a scratch root and checks what it prints on
// standard output at start-up and that its loop keeps passing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <regex>
#include <string>

#include "common/usb_gun/unixsocket.h"
#include "sim/daemon_process.h"
#include "support/scratch_root.h"

namespace {

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
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (main_thread_waits(daemon.pid()) < first + 3 && std::chrono::steady_clock::now() < deadline)
        usleep(200000);
    EXPECT_GE(main_thread_waits(daemon.pid()), first + 3);
    EXPECT_TRUE(daemon.alive());
    // The key sound service waits for its audio client.
    EXPECT_GT(unix_client_open("/tmp/UNIX2.domain.audio"), 0);
    EXPECT_TRUE(testsupport::wait_for_file_text(root.at("/tmp/audio-server.txt"), "Audio unix client connected...\r\n"));
}

TEST(DaemonStart, ReadsPortConfFromItsWorkingDirectory)
{
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/run"));
    emul::DaemonProcess daemon(root.at("/run"));
    ASSERT_TRUE(daemon.started());
    expect_banner(daemon);
    for (const char* line : {"path:usb-musb-hdrc.0-1----seat:5\n", "screen:1 ______ 2\n", "nice is "})
        EXPECT_TRUE(daemon.wait_for(line)) << line;
    EXPECT_TRUE(daemon.alive());
}

TEST(DaemonStart, ConversionsInAConfigurationLineAreLoggedAsTheyStand)
{
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/run"), std::string("StartSection %n%n%n%n\n") + testsupport::kExamplePortConf);
    emul::DaemonProcess daemon(root.at("/run"), {"-p", "0", "-d", "0", "-i", "0"});
    ASSERT_TRUE(daemon.started());
    EXPECT_TRUE(daemon.wait_for("parse error section %n%n%n%n is unsurpport\n"));
    EXPECT_TRUE(daemon.wait_for("nice is "));
    EXPECT_TRUE(daemon.alive());
}

}  // namespace
