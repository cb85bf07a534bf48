#include "common/usb_gun/unixsocket.h"

#include "support/unit_common.h"

TEST(UnixSocket, ServedUnderTheRootWithATimeoutAcceptFailuresReportedOnceASecondAFailedBindClosed)
{
    AcceptFailures failures;
    const auto t0 = std::chrono::steady_clock::now();
    const std::pair<int, unsigned> at_ms_reported[] = {{0, 1}, {10, 0}, {900, 0}, {1000, 3}, {1500, 0}, {2100, 2}};
    for (const auto& [at, reported] : at_ms_reported)
        EXPECT_EQ(failures.note(ECONNABORTED, t0 + std::chrono::milliseconds(at)), reported) << at;

    testsupport::ScratchRoot root;
    const int server = unix_server_open("/tmp/UNIX2.domain.test");
    struct stat st{};
    ASSERT_TRUE(server > 0 && stat(root.at("/tmp/UNIX2.domain.test").c_str(), &st) == 0);
    EXPECT_EQ(st.st_mode & 0777, 0777U);
    const int client = unix_client_open("/tmp/UNIX2.domain.test");
    const int conn = unix_server_accept(server);
    ASSERT_TRUE(client > 0 && conn > 0);
    char buf[8] = {};
    EXPECT_TRUE(unix_socket_read(conn, buf, sizeof buf, 5) == 0 && unix_socket_read(conn, nullptr, sizeof buf, 5) == -1);
    ASSERT_EQ(unix_socket_write(client, "abc", 3), 3);
    EXPECT_TRUE(unix_socket_read(conn, buf, sizeof buf, 100) == 3 && std::string(buf, 3) == "abc");
    EXPECT_TRUE(unix_client_open("/tmp/nobody.listens") == -2 && unix_socket_close(0) == 0);
    for (int fd : {conn, client, server})
        EXPECT_EQ(unix_socket_close(fd), 0);

    unlink(root.at("/tmp/UNIX2.domain.test").c_str());
    ASSERT_EQ(mkdir(root.at("/tmp/UNIX2.domain.test").c_str(), 0755), 0);  // a directory where the socket goes
    const int lowest = open("/dev/null", O_RDONLY);  // the number a leaked socket would take
    close(lowest);
    EXPECT_EQ(unix_server_open("/tmp/UNIX2.domain.test"), -2);
    EXPECT_EQ(open("/dev/null", O_RDONLY), lowest);

    testsupport::UnitPeer pair;  // the daemon's end moved beyond select's FD_SETSIZE
    rlimit lim{};
    getrlimit(RLIMIT_NOFILE, &lim);
    lim.rlim_cur = std::max<rlim_t>(lim.rlim_cur, std::min<rlim_t>(lim.rlim_max, 2048));
    setrlimit(RLIMIT_NOFILE, &lim);
    const int high = fcntl(pair.daemon, F_DUPFD, 1500);
    if (high < 0)
        GTEST_SKIP() << "no descriptor above 1500";
    ASSERT_EQ(unix_socket_write(pair.peer, "x", 1), 1);
    EXPECT_EQ(unix_socket_read(high, buf, sizeof buf, 100), 1);
    pair.close_peer();
    EXPECT_TRUE(unix_socket_send(high, "x", 1) == -1 && errno == EPIPE);  // a peer gone: EPIPE, no SIGPIPE
}

