// The real daemon's control socket beyond what a scenario can say: a portrait framebuffer, the
// socket's mode, a second client for a held screen, half a record. Every request type's log lines
// and replies: tests/scenarios/control_requests.sim.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "harness/display_client.h"
#include "harness/drill.h"
#include "sim/daemon_process.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testharness::DisplayClient;
using testharness::make_msg;

class ControlSocket : public ::testing::Test {
protected:
    void SetUp() override
    {
        bed_.add(0, emul::devices::single_touch_screen());
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"));
        ASSERT_TRUE(daemon_->wait_for("add screen id:0, seat 5 to touchscreen...\n") && daemon_->wait_for("nice is "));
    }
    bool logged(const std::string& text, std::size_t since = 0) { return daemon_->wait_for(text, since, 3s); }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/work"));
    emul::EvdevTestbed bed_;
    emul::FramebufferEmulator fb_{bed_.testbed(), 800, 1280};
    std::unique_ptr<emul::DaemonProcess> daemon_;
};

TEST_F(ControlSocket, APortraitFramebufferIsTakenAsLandscapeAndTheSocketIsGroupOnly)
{
    EXPECT_TRUE(logged("*******screen_width   1280    screen_height  800\n"));
    EXPECT_TRUE(logged("[output 0]: 1280x800 + 0+0\n"));
    struct stat st{};
    ASSERT_EQ(stat(root_.at(SYSTEM_MSG_SOCKET).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660U);
}

TEST_F(ControlSocket, TheCursorIsHiddenWithoutAMouseAndASecondClientForAScreenGetsNothing)
{
    DisplayClient main(root_.path()), late(root_.path());
    ASSERT_TRUE(main.register_for(0));
    const auto hidden = main.read_event(3s);
    ASSERT_TRUE(hidden.has_value());
    EXPECT_EQ(std::make_tuple(hidden->type, hidden->code, hidden->value), std::make_tuple(33, 0, 0));

    const std::size_t mark = daemon_->mark();
    ASSERT_TRUE(late.register_for(0));
    EXPECT_TRUE(logged("screen 0 has been init !!\n", mark));
    SystemMsg ext = make_msg(TYPE_MODE_SET, 0);
    ext.data.mode_info = {MODE_EXTERN, {0, 0, 0, 1, 2, 0, 0, 0, 0}, {}};
    ASSERT_TRUE(main.send(ext));
    int records = 0;  // cursor show/hide aside: their timing is the cursor timer's
    for (auto e = main.read_event(); e; e = records < 5 ? main.read_event() : std::nullopt)
        records += e->type != EV_PRIV_CURSOR_SHOW;
    ASSERT_EQ(records, 5);
    EXPECT_EQ(late.pending(300ms), 0U);
}

// Split records, floods and clients that close mid-record: the fault drills.
TEST_F(ControlSocket, HalfARecordAndSilenceDropTheConnectionAndFreeItsScreen)
{
    const SystemMsg get = make_msg(TYPE_MODE_GET, 3);
    DisplayClient half(root_.path());
    ASSERT_TRUE(half.register_for(1));
    ASSERT_TRUE(half.send_raw(&get, 30));
    EXPECT_TRUE(half.closed_by_peer(5s));
    EXPECT_TRUE(logged("recv_need_len_data failed needlen =64, nrecvLen=30"));
    const std::size_t mark = daemon_->mark();
    DisplayClient again(root_.path());
    ASSERT_TRUE(again.register_for(1) && testharness::round_trip(again, 3));
    EXPECT_EQ(daemon_->output().find("screen 1 has been init !!\n", mark), std::string::npos);
}

}  // namespace
