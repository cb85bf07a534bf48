// Socket utilities: records collected across writes, bounded waits on a
// silent or closed peer, a send to a peer that never reads.
#include "common/communicate.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <thread>

#include "support/log_capture.h"

namespace {

struct Pair {
    int daemon = -1;
    int peer = -1;
    Pair()
    {
        int sv[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) == 0) {
            daemon = sv[0];
            peer = sv[1];
            fcntl(daemon, F_SETFL, O_NONBLOCK);
        }
    }
    ~Pair()
    {
        close(daemon);
        if (peer >= 0)
            close(peer);
    }
};

TEST(RecvNeedLen, ARecordSplitOverTwoWritesIsAssembled)
{
    Pair p;
    char out[64] = {};
    const std::string rec(64, 'r');
    std::thread writer([&] {
        write(p.peer, rec.data(), 30);
        usleep(5000);
        write(p.peer, rec.data() + 30, 34);
    });
    EXPECT_EQ(recv_need_len_data(p.daemon, out, 64, 64), 64);
    writer.join();
    EXPECT_EQ(std::string(out, 64), rec);
}

TEST(RecvNeedLen, HalfARecordThenSilenceOrCloseGivesZeroWithinTheBoundedPasses)
{
    for (bool closes : {false, true}) {
        testsupport::LogCapture log(0);
        Pair p;
        char out[64];
        write(p.peer, "half", 4);
        if (closes) {
            close(p.peer);
            p.peer = -1;
        }
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(recv_need_len_data(p.daemon, out, 64, 64), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        if (closes) {
            EXPECT_EQ(log.count("Server closed connection\n"), 9);
            EXPECT_TRUE(log.has("recv_need_len_data failed needlen =64, nrecvLen=4, ncount=0\n"));
        } else {
            EXPECT_TRUE(log.has("tactord: recv again fail, err is 11"));
        }
    }
}

TEST(SendData, APeerThatNeverReadsCostsTenWaitsAndBadArgumentsAreRefused)
{
    signal(SIGPIPE, SIG_IGN);
    testsupport::LogCapture log;
    Pair p;
    int small = 4096;
    setsockopt(p.daemon, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    const std::string chunk(1 << 16, 'x');
    int r = 0;
    for (int i = 0; i < 64 && r >= 0; ++i)
        r = send_data(p.daemon, chunk.data(), static_cast<int>(chunk.size()));
    EXPECT_EQ(r, -1);
    EXPECT_TRUE(log.has("send error, errno is EAGAIN > 11\n "));
    EXPECT_EQ(send_data(0, "x", 1), -1);
    EXPECT_EQ(recv_data(p.daemon, nullptr, 4), -1);
    EXPECT_EQ(log.count("para error\n"), 2);
    EXPECT_EQ(create_monitor(nullptr), -1);
    EXPECT_EQ(create_monitor(std::string(200, 'p').c_str()), -1);  // does not fit an address
    EXPECT_TRUE(log.has("bind,err is 36\n"));
}

}  // namespace
