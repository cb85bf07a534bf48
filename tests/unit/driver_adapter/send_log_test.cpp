// The adapter logger: one whole datagram per message: level byte, text cut at 511 bytes, zero.
#include "common/send_log.h"

#include "support/adapter.h"

TEST(SendLog, SendsEachMessageAsOneWholeDatagramOfLevelTextCutAt511AndZero)
{
    // The collector listens in a namespace of this test's own: parallel tests never share its port.
    const std::string why = testsupport::enter_private_net();
    if (!why.empty())
        GTEST_SKIP() << "no private network namespace: " << why;
    const int collector = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{.sin_family = AF_INET, .sin_port = htons(SEND_LOG_PORT), .sin_addr = {}, .sin_zero = {}};
    inet_pton(AF_INET, SEND_LOG_ADDR, &addr.sin_addr);
    ASSERT_EQ(bind(collector, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);

    // No descriptor to be had: the message is dropped and the next call creates the socket.
    rlimit lim{};
    getrlimit(RLIMIT_NOFILE, &lim);
    const rlimit none{0, lim.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    send_log(DRV_LOG_ERR, "lost\n");
    setrlimit(RLIMIT_NOFILE, &lim);
    send_log(DRV_LOG_ERR, "%s:%d:%s(): open failed!\n", DRV_POS);
    send_log(DRV_LOG_ERR, "%s", std::string(700, 'a').c_str());
    std::vector<std::thread> senders;
    std::multiset<std::string> want;
    for (int t = 0; t < 4; ++t) {
        senders.emplace_back([t] {
            for (int i = 0; i < 25; ++i)
                send_log(DRV_LOG_INFO, "thread %d message %d\n", t, i);
        });
        for (int i = 0; i < 25; ++i)
            want.insert("\x06thread " + std::to_string(t) + " message " + std::to_string(i) + "\n" + '\0');
    }
    for (auto& s : senders)
        s.join();

    std::vector<std::string> got;
    char buf[2048];
    for (ssize_t n; (n = recv(collector, buf, sizeof(buf), MSG_DONTWAIT)) >= 0;)
        got.emplace_back(buf, static_cast<size_t>(n));
    ASSERT_EQ(got.size(), 102u);
    EXPECT_TRUE(got[0].starts_with("\x03send_log_test.cpp:")) << got[0];
    // Built in one piece: GCC 12 at -O2 warns falsely (-Wrestrict) on "..." + std::string&&.
    std::string cut(SEND_LOG_TEXT_MAX + 2, 'a');
    cut.front() = '\x03', cut.back() = '\0';
    EXPECT_EQ(got[1], cut);
    EXPECT_EQ(std::multiset<std::string>(got.begin() + 2, got.end()), want);
}
