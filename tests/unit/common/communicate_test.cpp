// Socket utilities: the bounded wait on a peer that closes mid-record, and
// the arguments they refuse.
#include "common/communicate.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

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

// Half a record and silence: the control-socket system test.
TEST(RecvNeedLen, HalfARecordThenCloseGivesZeroWithinTheBoundedPasses)
{
    testsupport::LogCapture log(0);
    Pair p;
    char out[64];
    write(p.peer, "half", 4);
    close(p.peer);
    p.peer = -1;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(recv_need_len_data(p.daemon, out, 64, 64), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(log.count("Server closed connection\n"), 9);
    EXPECT_TRUE(log.has("recv_need_len_data failed needlen =64, nrecvLen=4, ncount=0\n"));
}

// A peer that never reads: the fault drills of the control socket.
TEST(SocketUtilities, BadArgumentsAreRefused)
{
    testsupport::LogCapture log;
    Pair p;
    EXPECT_EQ(send_data(0, "x", 1), -1);
    EXPECT_EQ(recv_data(p.daemon, nullptr, 4), -1);
    EXPECT_EQ(log.count("para error\n"), 2);
    EXPECT_EQ(create_monitor(nullptr), -1);
    EXPECT_EQ(create_monitor(std::string(200, 'p').c_str()), -1);  // does not fit an address
    EXPECT_TRUE(log.has("bind,err is 36\n"));
}

}  // namespace
