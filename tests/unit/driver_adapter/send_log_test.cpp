#include "common/send_log.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

// Runs `send` in a child inside a private network namespace (so parallel tests
// never share the port) with the collector's address bound on its loopback,
// and returns every datagram that arrived there.
std::vector<std::string> datagrams_from(const std::function<void()>& send)
{
    int sp[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sp) != 0)
        return {};
    const pid_t child = fork();
    if (child == 0) {
        close(sp[0]);
        ifreq ifr{};
        std::strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
        const int ctl = unshare(CLONE_NEWNET) == 0 ? socket(AF_INET, SOCK_DGRAM, 0) : -1;
        if (ctl < 0 || ioctl(ctl, SIOCGIFFLAGS, &ifr) != 0)
            _exit(10);
        ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP);
        const int listener = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(SEND_LOG_PORT);
        inet_pton(AF_INET, SEND_LOG_ADDR, &addr.sin_addr);
        if (ioctl(ctl, SIOCSIFFLAGS, &ifr) != 0 ||
            bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
            _exit(11);
        send();
        std::array<char, 2048> buf;
        ssize_t n;
        while ((n = recv(listener, buf.data(), buf.size(), MSG_DONTWAIT)) >= 0) {
            if (::send(sp[1], buf.data(), static_cast<size_t>(n), 0) != n)
                _exit(12);
        }
        _exit(0);
    }
    close(sp[1]);
    std::vector<std::string> out;
    std::array<char, 2048> buf;
    ssize_t n;
    while ((n = recv(sp[0], buf.data(), buf.size(), 0)) > 0)
        out.emplace_back(buf.data(), static_cast<size_t>(n));
    close(sp[0]);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    return out;
}

TEST(SendLog, SendsOneDatagramOfLevelTextCutAt511AndZero)
{
    const auto got = datagrams_from([] {
        // No descriptor to be had: the message is dropped and the next call
        // creates the socket.
        rlimit lim{};
        getrlimit(RLIMIT_NOFILE, &lim);
        const rlimit none{0, lim.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
        send_log(DRV_LOG_ERR, "lost\n");
        setrlimit(RLIMIT_NOFILE, &lim);

        send_log(DRV_LOG_INFO, "%s:%d:%s(): DriverAdpter Initiated!\n", "board.cpp", 42,
                 "InitDriverAdapter");
        send_log(DRV_LOG_ERR, "%s:%d:%s(): open failed!\n", DRV_POS);
        send_log(DRV_LOG_ERR, "%s", std::string(700, 'a').c_str());
    });
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0], std::string("\x06") + "board.cpp:42:InitDriverAdapter(): DriverAdpter Initiated!\n" +
                          std::string(1, '\0'));
    EXPECT_EQ(got[1].rfind(std::string("\x03") + "send_log_test.cpp:", 0), 0u) << got[1];
    EXPECT_EQ(got[2], "\x03" + std::string(SEND_LOG_TEXT_MAX, 'a') + std::string(1, '\0'));
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
    std::multiset<std::string> want;
    for (int t = 0; t < threads; ++t)
        for (int i = 0; i < per_thread; ++i)
            want.insert("\x06thread " + std::to_string(t) + " message " + std::to_string(i) + "\n" + '\0');
    EXPECT_EQ(std::multiset<std::string>(got.begin(), got.end()), want);
}

}  // namespace
