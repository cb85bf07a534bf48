// Notifications to a service manager: the keep-alive period the environment asks for, and the
// watchdog's keep-alives, which follow the loop's passes.
#include "common/service_notify.h"

#include "common/cursor_timer.h"
#include "support/unit_common.h"

// Keep-alives stop a few seconds after the counter stands still (the abort is far off here) and
// come again when it moves.
TEST(ServiceNotify, KeepAlivesAreAskedForByAWholePeriodAndFollowTheLoopsPasses)
{
    const std::string self = std::to_string(getpid());
    const struct {
        const char *usec, *pid;
        long long interval;
    } cases[] = {{"", "", 0}, {"10000000", "", 5000000}, {"10000000", self.c_str(), 5000000},
                 {"10000000", "1", 0}, {"-4", "", 0}, {"12x", "", 0}};
    for (const auto& c : cases) {
        setenv("WATCHDOG_USEC", c.usec, 1);
        setenv("WATCHDOG_PID", c.pid, 1);
        EXPECT_EQ(service_watchdog_interval_us(), c.interval) << c.usec << " " << c.pid;
    }
    EXPECT_EQ(service_notify("READY=1"), 0);  // no manager asked
    setenv("NOTIFY_SOCKET", "relative", 1);
    EXPECT_EQ(service_notify("READY=1"), -1);
    testsupport::ScratchRoot scratch;
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{AF_UNIX, {}};
    scratch.at("/notify").copy(addr.sun_path, sizeof addr.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    setenv("NOTIFY_SOCKET", addr.sun_path, 1);
    setenv("WATCHDOG_USEC", "200000", 1);
    static std::atomic<unsigned int> passes{0};
    ASSERT_EQ(Init_Watch(1, &passes, 1000), 0);
    const auto keepalives = [&](std::chrono::milliseconds span, bool passing) {
        int n = 0;
        char buf[16];
        for (auto end = std::chrono::steady_clock::now() + span; std::chrono::steady_clock::now() < end;) {
            passes += passing ? 1 : 0;
            std::this_thread::sleep_for(100ms);
            for (ssize_t len; (len = recv(fd, buf, sizeof buf, MSG_DONTWAIT)) > 0;)
                n += std::string(buf, static_cast<std::size_t>(len)) == "WATCHDOG=1" ? 1 : 100;
        }
        return n;
    };
    EXPECT_GE(keepalives(1500ms, true), 5);
    keepalives(4s, false);
    EXPECT_EQ(keepalives(1500ms, false), 0);
    EXPECT_GE(keepalives(1500ms, true), 5);
    close(fd);
}
