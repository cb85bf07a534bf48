// Socket utilities: the bounded wait on a peer that closes mid-record, and refused arguments.
#include "common/communicate.h"

#include "support/unit_common.h"

TEST(SocketUtilities, HalfARecordThenCloseGivesZeroAfterBoundedPassesAndBadArgumentsAreRefused)
{
    testsupport::LogCapture log(0);
    testsupport::UnitPeer p(O_NONBLOCK);
    char out[64];
    ASSERT_TRUE(p.put("half", 4));
    p.close_peer();
    EXPECT_EQ(recv_need_len_data(p.daemon, out, 64, 64), 0);
    EXPECT_EQ(log.count("Server closed connection\n"), 9);  // its line: the control socket's system test

    EXPECT_EQ(send_data(0, "x", 1), -1);
    EXPECT_EQ(recv_data(p.daemon, nullptr, 4), -1);
    EXPECT_EQ(log.count("para error\n"), 2);
    EXPECT_EQ(create_monitor(nullptr), -1);
    EXPECT_EQ(create_monitor(std::string(200, 'p').c_str()), -1);  // does not fit an address
    EXPECT_TRUE(log.has("bind,err is 36\n"));
}
