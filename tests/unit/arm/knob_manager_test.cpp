// The knob receiver over a socketpair served by the monitor list, a client on the focused screen.
#include "arm/knob_manager.h"

#include "arm/knob_manager_internal.h"
#include "support/unit_common.h"

namespace {

class Knob : public testing::Test {
protected:
    void SetUp() override
    {
        g_knob_fd.store(link_.daemon);
        knob_is_exist.store(1);
        ASSERT_EQ(add_monitor_handle(link_.daemon, handle_knob_data, nullptr), 0);
        screen_info.client[0].focus = 1;
    }
    void feed(const Bytes& bytes)
    {
        ASSERT_TRUE(bytes.empty() || link_.put(bytes.data(), bytes.size()));
        ASSERT_EQ(testsupport::serve_ready(1000), 1);
    }

    testsupport::UnitPeer link_;  // the daemon closes its end when the peer goes
    testsupport::ScreenClients clients_{{MAIN_SCREEN}};
    testsupport::LogCapture log_;
};

TEST_F(Knob, PackagesBecomeKeysForTheFocusedScreenAPeerCloseDropsAHeldOneAndCopiesStayInBounds)
{
    const struct {
        const char* what;
        std::vector<Bytes> reads;
        std::vector<Ev> keys;
        const char* line;
    } cases[] = {
        {"right turn", {{0x9E, 0x50, 0xEE, 0x00}}, {{1, 187, 1}}, "Knob Recv To Right Info 80!\n"},
        {"left turn after a failing start", {{0x9E, 0x9E, 0x51, 0xEF, 0x00}}, {{1, 186, 1}}, "Knob Recv To Left Info 81!\n"},
        {"press and release", {{0x9E, 0x52, 0xF0, 0x00}}, {{1, 28, 1}, {1, 28, 0}}, "Knob Recv Press And Up Info!\n"},
        {"split two and two", {{0x9E, 0x50}, {0xEE, 0x00}}, {{1, 187, 1}}, "Knob Recv To Right Info 80!\n"},
        {"bad check, then a good package", {{0x9E, 0x50, 0xEF, 0x00, 0x9E, 0x51, 0xEF, 0x00}}, {{1, 186, 1}}, nullptr},
        {"a held package failing its check", {{0x9E, 0x50, 0xEE}, {0x01, 0x9E, 0x51, 0xEF, 0x00}}, {{1, 186, 1}}, nullptr},
        {"heartbeat", {{0x9E, 0x53, 0xF1, 0x00}}, {}, "Knob heart beat 83!\n"},
        {"unknown info", {{0x9E, 0x54, 0xF2, 0x00}}, {}, "Key Type Error!\n"},
        {"noise around a package", {{0x01, 0x9E, 0x50, 0xEE, 0x00, 0x7F}}, {{1, 187, 1}}, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        for (const Bytes& read : c.reads)
            feed(read);
        EXPECT_EQ(testsupport::brief(clients_.events(MAIN_SCREEN)), c.keys);
        EXPECT_TRUE((c.line == nullptr || log_.has(c.line)) && !knob_partial.held);
    }
    screen_info.client[0].focus = 0;  // no focus: the event output refuses the key
    const int lefts = log_.count("Knob Recv To Left Info 81!\n");
    feed({0x9E, 0x51, 0xEF, 0x00});
    EXPECT_TRUE(clients_.events(MAIN_SCREEN).empty() && log_.count("Knob Recv To Left Info 81!\n") == lefts + 1);

    feed({0x9E, 0x50});
    ASSERT_TRUE(knob_partial.held);
    link_.close_peer();
    feed({});
    link_.daemon = -1;
    EXPECT_TRUE(g_knob_fd.load() == 0 && knob_is_exist.load() == 0 && monitor_entry(0).fd == 0 && !knob_partial.held);

    KnobRecvData pkg{};
    const uint8_t bytes[5] = {1, 2, 3, 4, 5};
    recv_data_to_knob(&pkg, bytes, 0, 5);
    recv_data_to_knob(&pkg, bytes, 2, 3);
    EXPECT_TRUE(log_.has("copySize too Large!\n") && log_.has("index Error!\n"));
    EXPECT_TRUE(pkg.head == 0 && pkg.info == 0 && pkg.check == 1 && pkg.tail == 2);
}

}  // namespace
