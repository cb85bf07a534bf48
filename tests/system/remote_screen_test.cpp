// The real daemon with its remote-screen clients on (-i 1), in a private
// network namespace, against a fake agent: input routed to the IPC screen.
#include "common/screen_manager.h"
#include "support/system_common.h"

namespace {

using testharness::make_msg;
using testsupport::agent_frame;
using Words = std::vector<uint32_t>;

Words request(uint32_t type) { return {IPC_PKG_FLAG, 4, 0, type}; }

// A mouse (seat 2) and a keyboard (seat 1), the IPC screen right of the main
// screen: the pointer crosses into it, a click takes the focus, a key
// follows. With -t 0 the daemon converts them, else it sends raw records.
// (The agent's answers and a silent agent: the fault drills.)
struct IpcScreenInput : testharness::DaemonTest, ::testing::WithParamInterface<const char*> {};

TEST_P(IpcScreenInput, ThePointerKeysAndFocusRoutedToTheIpcScreenReachTheAgent)
{
    using emul::ev;
    if (const std::string why = testsupport::enter_private_net(); !why.empty())
        GTEST_SKIP() << "no private network namespace (" << why << "): never on the real network";
    testsupport::FakePeer agent("173.0.0.2", IPC_PORT);
    agent.answer_ticks = true;
    launch({"-p", "0", "-d", "0", "-i", "1", "-t", GetParam()});
    ASSERT_TRUE(agent.accept(10s));
    ASSERT_EQ(agent.frame(), request(MessageType_WindowsSize));
    ASSERT_EQ(agent.frame(), request(MessageType_Version));
    ASSERT_TRUE(agent.send(agent_frame(MessageType_WindowsSize, {1, 1024, 768})));
    ASSERT_TRUE(daemon_->wait_for("==IPC win size:n:1 width 1024, height:768\n"));
    testharness::DisplayClient main(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    ASSERT_TRUE(bed_.add(1, emul::devices::mouse().on("usb-musb-hdrc.1-1.2/input0")));
    ASSERT_TRUE(bed_.add(2, emul::devices::full_keyboard().on("usb-musb-hdrc.1-1.1/input0")));
    ASSERT_TRUE(daemon_->wait_for("/dev/event1 is mouse...\n") && daemon_->wait_for("/dev/event2 is keyboard...\n"));
    SystemMsg mode = make_msg(TYPE_MODE_SET, MAIN_SCREEN);
    mode.data.mode_info = {MODE_EXTERN | MODE_IPC_EXTERN, {0, 0, 0, 1, 3, 0, 0, 0, 0}, {}};
    ASSERT_TRUE(main.send(mode) && daemon_->wait_for("==MODE_IPC_EXTERN set==\n"));
    ASSERT_EQ(agent.frame(), request(MessageType_WindowsSize));  // asked again

    // Right of the 1920-wide main screen: x = 100 + 2000 - 1920 = 180 on the 1024 x 768 IPC screen.
    bed_.play(1, {ev(EV_REL, REL_X, 2000), ev(EV_SYN, SYN_REPORT, 0)});
    bed_.play(1, {ev(EV_KEY, BTN_LEFT, 1), ev(EV_SYN, SYN_REPORT, 0)});
    ASSERT_TRUE(daemon_->wait_for("++++++ focus change:0--->2 ++++++\n"));
    bed_.play(2, {ev(EV_KEY, KEY_A, 1), ev(EV_SYN, SYN_REPORT, 0)});
    if (std::string(GetParam()) == "0") {
        for (const Words& want : {request(MessageType_MoveIn),
                                  Words{IPC_PKG_FLAG, 28, 0, MessageType_Mouse, 180 * 65535 / 1024, 0, 0, 0x8001, 0, 0},
                                  request(MessageType_FocusIn), Words{IPC_PKG_FLAG, 8, 0, MessageType_CapsLock, 0},
                                  Words{IPC_PKG_FLAG, 8, 0, MessageType_NumLock, 0},
                                  Words{IPC_PKG_FLAG, 8, 0, MessageType_ScrollLock, 0},
                                  Words{IPC_PKG_FLAG, 28, 0, MessageType_Mouse, 0, 0, 0, 0x0002, 0, 0},
                                  Words{IPC_PKG_FLAG, 20, 0, MessageType_Keyboard, KEY_A << 16, 0x08, 0, 0}})
            EXPECT_EQ(agent.frame(), want);  // a key as wVk 0, wScan its code
        return;
    }
    std::vector<std::tuple<int, int, int>> got;  // frames (ticks) and cursor show/hide records skipped
    for (testsupport::Bytes b; got.size() < 10 && (b = agent.bytes(16)).size() == 16;) {
        tactord::input_event e{};
        std::memcpy(&e, b.data(), sizeof e);
        if (static_cast<uint32_t>(e.tv_sec) != IPC_PKG_FLAG && e.type != EV_PRIV_CURSOR_SHOW)
            got.emplace_back(e.type, e.code, e.value);
    }
    EXPECT_EQ(got, (std::vector<std::tuple<int, int, int>>{{27, 0, 0}, {EV_REL, REL_X, 180}, {EV_SYN, SYN_REPORT, 0},
                                                           {26, 0, 0}, {28, 0, 0}, {28, 1, 0}, {28, 2, 0},
                                                           {EV_KEY, BTN_LEFT, 1}, {EV_SYN, SYN_REPORT, 0}, {EV_KEY, KEY_A, 1}}));
}

INSTANTIATE_TEST_SUITE_P(ConvertedAndRaw, IpcScreenInput, ::testing::Values("0", "1"));

}  // namespace
