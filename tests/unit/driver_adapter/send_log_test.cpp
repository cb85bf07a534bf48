#include "common/send_log.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

// Everything runs in a child in a private network namespace (so parallel
// tests never share the port): it brings up its loopback, listens on the
// collector's address, runs `send`, and passes every datagram that arrived
// back through a pipe as a 16-bit length and the bytes.
std::vector<std::string> datagrams_from(const std::function<void()>& send)
{
    int fds[2];
    if (pipe(fds) != 0)
        return {};
    const pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        if (unshare(CLONE_NEWNET) != 0)
            _exit(10);
        const int ctl = socket(AF_INET, SOCK_DGRAM, 0);
        ifreq ifr{};
        std::strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
        if (ctl < 0 || ioctl(ctl, SIOCGIFFLAGS, &ifr) != 0)
            _exit(11);
        ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP);
        if (ioctl(ctl, SIOCSIFFLAGS, &ifr) != 0)
            _exit(12);
        const int listener = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(SEND_LOG_PORT);
        inet_pton(AF_INET, SEND_LOG_ADDR, &addr.sin_addr);
        if (bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
            _exit(13);
        send();
        std::array<char, 2048> buf;
        for (;;) {
            const ssize_t n = recv(listener, buf.data(), buf.size(), MSG_DONTWAIT);
            if (n < 0)
                break;
            const auto len = static_cast<uint16_t>(n);
            if (write(fds[1], &len, sizeof(len)) != sizeof(len) || write(fds[1], buf.data(), len) != n)
                _exit(14);
        }
        _exit(0);
    }
    close(fds[1]);
    std::vector<std::string> out;
    uint16_t len = 0;
    while (read(fds[0], &len, sizeof(len)) == sizeof(len)) {
        std::string d(len, '\0');
        size_t got = 0;
        while (got < len) {
            const ssize_t n = read(fds[0], d.data() + got, len - got);
            if (n <= 0)
                break;
            got += static_cast<size_t>(n);
        }
        out.push_back(d);
    }
    close(fds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    return out;
}

TEST(SendLog, SendsOneDatagramOfLevelTextAndZeroPerMessage)
{
    const auto got = datagrams_from([] {
        send_log(DRV_LOG_INFO, "%s:%d:%s(): DriverAdpter Initiated!\n", "board.cpp", 42,
                 "InitDriverAdapter");
        send_log(DRV_LOG_ERR, "%s:%d:%s(): open failed!\n", DRV_POS);
    });
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0], std::string("\x06") + "board.cpp:42:InitDriverAdapter(): DriverAdpter Initiated!\n" +
                          std::string(1, '\0'));
    EXPECT_EQ(got[1][0], 3);
    EXPECT_EQ(got[1].rfind(std::string("\x03") + "send_log_test.cpp:", 0), 0u) << got[1];
    EXPECT_EQ(got[1].back(), '\0');
}

TEST(SendLog, CutsTheTextAt511Characters)
{
    const auto got = datagrams_from([] { send_log(3, "%s", std::string(700, 'a').c_str()); });
    ASSERT_EQ(got.size(), 1u);
    ASSERT_EQ(got[0].size(), 1 + SEND_LOG_TEXT_MAX + 1);
    EXPECT_EQ(got[0].substr(1, SEND_LOG_TEXT_MAX), std::string(SEND_LOG_TEXT_MAX, 'a'));
    EXPECT_EQ(got[0].back(), '\0');
}

TEST(SendLog, MessagesFromSeveralThreadsArriveWhole)
{
    constexpr int threads = 4;
    constexpr int per_thread = 25;
    const auto got = datagrams_from([] {
        std::vector<std::thread> senders;
        for (int t = 0; t < threads; ++t) {
            senders.emplace_back([t] {
                for (int i = 0; i < per_thread; ++i)
                    send_log(6, "thread %d message %d\n", t, i);
            });
        }
        for (auto& s : senders)
            s.join();
    });
    std::set<std::string> texts;
    for (const auto& d : got)
        texts.insert(d);
    ASSERT_EQ(texts.size(), static_cast<size_t>(threads * per_thread));
    for (int t = 0; t < threads; ++t) {
        for (int i = 0; i < per_thread; ++i) {
            const std::string want = "\x06thread " + std::to_string(t) + " message " +
                                     std::to_string(i) + "\n" + std::string(1, '\0');
            EXPECT_EQ(texts.count(want), 1u) << want;
        }
    }
}

}  // namespace
