// Notifications to a service manager: the keep-alive period the environment
// asks for, and where a notification goes.
#include "common/service_notify.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/scratch_root.h"

namespace {

TEST(ServiceNotify, KeepAlivesAreAskedForByAWholePeriodAddressedToThisProcess)
{
    const std::string self = std::to_string(getpid());
    const struct {
        const char *usec, *pid;
        long long interval;
    } cases[] = {{"", "", 0},        {"10000000", "", 5000000}, {"10000000", self.c_str(), 5000000},
                 {"10000000", "1", 0}, {"-4", "", 0},           {"12x", "", 0}};
    for (const auto& c : cases) {
        setenv("WATCHDOG_USEC", c.usec, 1);
        setenv("WATCHDOG_PID", c.pid, 1);
        EXPECT_EQ(service_watchdog_interval_us(), c.interval) << c.usec << " " << c.pid;
    }
}

TEST(ServiceNotify, ADatagramToTheNamedSocketAndNothingWithoutOne)
{
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(service_notify("READY=1"), 0);
    testsupport::ScratchRoot scratch;
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    scratch.at("/notify").copy(addr.sun_path, sizeof addr.sun_path - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    for (const char* name : {"notify", "vsock:2:1234", "/no/such/socket"}) {
        setenv("NOTIFY_SOCKET", name, 1);
        EXPECT_EQ(service_notify("READY=1"), -1) << name;
    }
    setenv("NOTIFY_SOCKET", addr.sun_path, 1);
    EXPECT_EQ(service_notify("WATCHDOG=1"), 1);
    char buf[32] = {};
    EXPECT_EQ(recv(fd, buf, sizeof buf, MSG_DONTWAIT), 10);
    EXPECT_STREQ(buf, "WATCHDOG=1");
    close(fd);
}

}  // namespace
