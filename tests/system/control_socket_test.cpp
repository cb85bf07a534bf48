// The real daemon's control socket beyond what a scenario can say: a portrait framebuffer, the
// socket's mode, a second client for a held screen, half a record. Every request type's log lines
// and replies: tests/scenarios/control_requests.sim.
#include <sys/stat.h>

#include "support/system_common.h"

namespace {

using testharness::DisplayClient;
using testharness::make_msg;
using ControlSocket = testharness::DaemonTest;

// One single-touch screen on seat 5 and an 800x1280 framebuffer. The cursor is hidden at once
// without a mouse; a second client for a held screen is refused and given nothing; half a record
// and silence drop the connection and free its screen (split records and floods: the fault drills).
TEST_F(ControlSocket, IsGroupOnlyTakesAPortraitPanelAsLandscapeServesOneClientAScreenAndDropsHalfRecords)
{
    emul::FramebufferEmulator fb(bed_.testbed(), 800, 1280);
    ASSERT_TRUE(bed_.add(0, emul::devices::single_touch_screen()));
    launch();
    for (const char* line : {"add screen id:0, seat 5 to touchscreen...\n", "nice is ",
                             "*******screen_width   1280    screen_height  800\n", "[output 0]: 1280x800 + 0+0\n"})
        EXPECT_TRUE(daemon_->wait_for(line)) << line;
    struct stat st{};
    ASSERT_EQ(stat(root_.at(SYSTEM_MSG_SOCKET).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660U);

    {
        const SystemMsg get = make_msg(TYPE_MODE_GET, 3);
        DisplayClient half(root_.path());
        ASSERT_TRUE(half.register_for(SUB_SCREEN));
        ASSERT_TRUE(half.send_raw(&get, 30));
        EXPECT_TRUE(half.closed_by_peer(5s));
        EXPECT_TRUE(daemon_->wait_for("recv_need_len_data failed needlen =64, nrecvLen=30"));
        const std::size_t mark = daemon_->mark();
        DisplayClient again(root_.path());
        ASSERT_TRUE(again.register_for(SUB_SCREEN) && testharness::round_trip(again, 3));
        EXPECT_EQ(daemon_->output().find("screen 1 has been init !!\n", mark), std::string::npos);
    }

    DisplayClient main(root_.path()), late(root_.path());
    ASSERT_TRUE(main.register_for(MAIN_SCREEN));
    const auto hidden = main.read_event(3s);
    ASSERT_TRUE(hidden.has_value());
    EXPECT_EQ(std::make_tuple(hidden->type, hidden->code, hidden->value), std::make_tuple(33, 0, 0));
    const std::size_t mark = daemon_->mark();
    ASSERT_TRUE(late.register_for(MAIN_SCREEN));
    EXPECT_TRUE(daemon_->wait_for("screen 0 has been init !!\n", mark));
    SystemMsg ext = make_msg(TYPE_MODE_SET);
    ext.data.mode_info = {MODE_EXTERN, {0, 0, 0, 1, 2, 0, 0, 0, 0}, {}};
    ASSERT_TRUE(main.send(ext));
    int records = 0;  // cursor show/hide aside: their timing is the cursor timer's
    for (auto e = main.read_event(); e; e = records < 5 ? main.read_event() : std::nullopt)
        records += e->type != EV_PRIV_CURSOR_SHOW;
    ASSERT_EQ(records, 5);
    EXPECT_EQ(late.pending(300ms), 0U);
}

}  // namespace
