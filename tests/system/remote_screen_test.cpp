// The real daemon with its remote-screen clients on (-i 1) in a private network namespace this test
// makes, against a fake agent: its answers through the control socket, the liveness path, routed input.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <cstring>
#include <memory>
#include <string>

#include "common/OrvelClient.h"
#include "common/screen_manager.h"
#include "harness/display_client.h"
#include "sim/daemon_process.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "support/remote_link.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testharness::make_msg;
using testsupport::agent_frame;
using Words = std::vector<uint32_t>;

// The private network namespace, the seat file and the fake agent on 173.0.0.2:27015.
class RemoteScreen : public ::testing::Test {
protected:
    void SetUp() override
    {
        const std::string why = testsupport::enter_private_net();
        if (!why.empty())
            GTEST_SKIP() << "no private network namespace (" << why << "): never on the real network";
        testsupport::write_port_conf(root_.at("/work"));
        agent_ = std::make_unique<testsupport::FakePeer>("173.0.0.2", IPC_PORT);
    }
    void TearDown() override
    {
        if (HasFailure() && daemon_)
            std::fprintf(stderr, "%s", daemon_->output().c_str());
    }
    void start_daemon(std::vector<std::string> options)
    {
        options.insert(options.begin(), {"-p", "0", "-d", "0", "-i", "1"});
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"), options);
        ASSERT_TRUE(agent_->accept(10s));
    }

    testsupport::ScratchRoot root_;
    emul::EvdevTestbed bed_;
    std::unique_ptr<testsupport::FakePeer> agent_;
    std::unique_ptr<emul::DaemonProcess> daemon_;
};

TEST_F(RemoteScreen, TheAgentsAnswersReachTheControlSocketAndASilentAgentIsDroppedAfterFourTicks)
{
    start_daemon({});
    const auto connected = std::chrono::steady_clock::now();
    for (const Words& want : {Words{IPC_PKG_FLAG, 4, 0, 10}, {IPC_PKG_FLAG, 4, 0, 17}, {IPC_PKG_FLAG, 4, 0, 0}})
        EXPECT_EQ(agent_->frame(3s, true), want);
    ASSERT_TRUE(agent_->send(testsupport::agent_text_frame(MessageType_Version, "agent 3.1")));
    ASSERT_TRUE(agent_->send(agent_frame(MessageType_OrvelExtentScreen, {1})));
    ASSERT_TRUE(agent_->send(agent_frame(MessageType_WindowsSize, {0, 1920, 1080, 1, 1024, 768})));
    EXPECT_TRUE(daemon_->wait_for("==IPC win size:n:1 width 1024, height:768\n"));

    testharness::DisplayClient client(root_.path());
    const auto ask = [&](int32_t type) {
        client.send(make_msg(type));
        return client.read_reply().value_or(SystemMsg{});
    };
    EXPECT_EQ(ask(TYPE_IPC_CONNECTED).data.ipc_connected, 1);
    EXPECT_EQ(ask(TYPE_ORVEL_EXT_SCR_EXIST).data.ipc_ext_scr_exist, 1);
    EXPECT_STREQ(ask(TYPE_GET_VERSION).data.version.orvelVer.data(), "agent 3.1");

    // No tick ever came back: three more ticks, the close at the 20-s check, and a new link after the pause.
    EXPECT_EQ(agent_->bytes_until_closed(30s), 3 * 16);
    EXPECT_GE(std::chrono::steady_clock::now() - connected, 19s);
    EXPECT_TRUE(daemon_->wait_for("==IPC disconnected==\n"));
    ASSERT_TRUE(agent_->accept(10s));
    EXPECT_EQ(agent_->frame(), (Words{IPC_PKG_FLAG, 4, 0, 10}));  // sent before the link counts as up
    EXPECT_EQ(ask(TYPE_IPC_CONNECTED).data.ipc_connected, 1);
}

// A mouse (seat 2) and a keyboard (seat 1), the IPC screen right of the main screen: the pointer
// crosses into it, a click takes the focus, a key follows. The daemon's -t 0 converts, else raw records.
class IpcScreenInput : public RemoteScreen, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        RemoteScreen::SetUp();
        if (IsSkipped())
            return;
        agent_->answer_ticks = true;
        start_daemon({"-t", GetParam()});
        ASSERT_EQ(agent_->frame(), (Words{IPC_PKG_FLAG, 4, 0, MessageType_WindowsSize}));
        ASSERT_EQ(agent_->frame(), (Words{IPC_PKG_FLAG, 4, 0, MessageType_Version}));
        ASSERT_TRUE(agent_->send(agent_frame(MessageType_WindowsSize, {1, 1024, 768})));
        ASSERT_TRUE(daemon_->wait_for("==IPC win size:n:1 width 1024, height:768\n"));

        main_ = std::make_unique<testharness::DisplayClient>(root_.path());
        ASSERT_TRUE(main_->register_for(MAIN_SCREEN));
        ASSERT_TRUE(bed_.add(1, emul::devices::mouse().on("usb-musb-hdrc.1-1.2/input0")));
        ASSERT_TRUE(bed_.add(2, emul::devices::full_keyboard().on("usb-musb-hdrc.1-1.1/input0")));
        ASSERT_TRUE(daemon_->wait_for("/dev/event1 is mouse...\n") && daemon_->wait_for("/dev/event2 is keyboard...\n"));
        SystemMsg mode = testharness::make_msg(TYPE_MODE_SET, MAIN_SCREEN);
        mode.data.mode_info = {MODE_EXTERN | MODE_IPC_EXTERN, {0, 0, 0, 1, 3, 0, 0, 0, 0}, {}};
        ASSERT_TRUE(main_->send(mode));
        ASSERT_TRUE(daemon_->wait_for("==MODE_IPC_EXTERN set==\n"));
        ASSERT_EQ(agent_->frame(), (Words{IPC_PKG_FLAG, 4, 0, MessageType_WindowsSize}));  // asked again
    }
    std::unique_ptr<testharness::DisplayClient> main_;
};

TEST_P(IpcScreenInput, ThePointerKeysAndFocusRoutedToTheIpcScreenReachTheAgent)
{
    using emul::ev;
    // Right of the 1920-wide main screen: x = 100 + 2000 - 1920 = 180 on the 1024 x 768 IPC screen.
    bed_.play(1, {ev(EV_REL, REL_X, 2000), ev(EV_SYN, SYN_REPORT, 0)});
    bed_.play(1, {ev(EV_KEY, BTN_LEFT, 1), ev(EV_SYN, SYN_REPORT, 0)});
    ASSERT_TRUE(daemon_->wait_for("++++++ focus change:0--->2 ++++++\n"));
    bed_.play(2, {ev(EV_KEY, KEY_A, 1), ev(EV_SYN, SYN_REPORT, 0)});

    if (std::string(GetParam()) == "0") {
        const uint32_t key_a = KEY_A << 16;  // wVk 0, wScan the key code
        for (const Words& want : {
                 Words{IPC_PKG_FLAG, 4, 0, MessageType_MoveIn},
                 Words{IPC_PKG_FLAG, 28, 0, MessageType_Mouse, 180 * 65535 / 1024, 0, 0, 0x8001, 0, 0},
                 Words{IPC_PKG_FLAG, 4, 0, MessageType_FocusIn},
                 Words{IPC_PKG_FLAG, 8, 0, MessageType_CapsLock, 0},
                 Words{IPC_PKG_FLAG, 8, 0, MessageType_NumLock, 0},
                 Words{IPC_PKG_FLAG, 8, 0, MessageType_ScrollLock, 0},
                 Words{IPC_PKG_FLAG, 28, 0, MessageType_Mouse, 0, 0, 0, 0x0002, 0, 0},
                 Words{IPC_PKG_FLAG, 20, 0, MessageType_Keyboard, key_a, 0x08, 0, 0},
             })
            EXPECT_EQ(agent_->frame(), want);
        return;
    }
    std::vector<std::tuple<int, int, int>> got;  // frames (ticks) and cursor show/hide records skipped
    for (testsupport::Bytes b; got.size() < 10 && (b = agent_->bytes(16)).size() == 16;) {
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
