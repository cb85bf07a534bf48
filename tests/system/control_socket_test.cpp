// The real daemon's control socket: every message type's log lines and reply bytes, registration,
// split and short records; a portrait framebuffer and a calibratable touchscreen on seat 5.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include <sys/stat.h>

#include "common/OrvelClient.h"
#include "sim/daemon_process.h"
#include "harness/display_client.h"
#include "harness/drill.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"
#include "sim/devices.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testharness::DisplayClient;
using testharness::make_msg;

constexpr int32_t PROBE = 77;  // scr_index of the probe that follows a record without reply

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

TEST_F(ControlSocket, EveryMessageTypeLogsActsAndRepliesWithItsRecord)
{
    DisplayClient c(root_.path());
    using Edit = std::function<void(SystemMsg&)>;
    struct Case {
        int32_t type;
        int32_t scr;
        Edit request;
        std::vector<std::string> lines;
        std::optional<Edit> reply;  // how the reply differs from the request
    };
    const cali_point_t targets = {{100, 1820, 1820, 100, 960}, {100, 100, 980, 980, 540}};
    const Case cases[] = {
        {0, 2, {}, {"++++system msg++++ TYPE_INPUT_INIT \n"}, {}},
        {1, 0, [](SystemMsg& m) { m.data.mode_info = {MODE_EXTERN, {0, 0, 0, 1, 2, 0, 0, 0, 0}, {}}; },
         {"++++system msg++++ TYPE_MODE_SET \n", "==MODE_EXTERN set,position is 1==\n", "[output 1]:MK2 1920x1080 + 1280+0\n"}, {}},
        {2, 0, {}, {"++++system msg++++ TYPE_MODE_GET \n"}, [](SystemMsg& m) { m.data.nValue = MODE_EXTERN; }},
        {3, 0, {}, {"++++system msg++++ TYPE_LED_CTRL \n", "find fd failed,"}, {}},
        {4, 0, [](SystemMsg& m) { m.data.win = {OP_IPC_WIN_ADD, {1, 2, 3, 4}}; },
         {"++++system msg++++ TYPE_IPC_WINDOW \n", "current mode is not IPC_WINDOW\n"}, {}},
        {5, 0, [](SystemMsg& m) { m.data.ipc_connected = 9; }, {}, [](SystemMsg& m) { m.data.ipc_connected = 0; }},
        {6, 0, [](SystemMsg& m) { m.data.evt = {0, 0, 2, 0, 5}; }, {"vnc input\n"}, {}},
        {7, 0, {}, {"++++system msg++++TYPE_SET_DIRECTION\n"}, {}},
        {8, 0, [](SystemMsg& m) { m.data.hide_seconds = 5; }, {"++++system msg++++TYPE_SET_CURSOR_TIME\n"}, {}},
        {9, 0, [](SystemMsg& m) { std::memcpy(m.data.ip_addr.data(), "173.0.0.9", 9); },
         {"++++system msg++++TYPE_SET_IPC_IP\n"}, {}},
        {10, 0, [](SystemMsg& m) { m.data.cmd = {CMD_REBOOT, 0, 0}; },
         {"++++system msg++++TYPE_SEND_IPC_CMD\n", "Ipc not connected\n"}, {}},
        {11, 0, [](SystemMsg& m) { m.data.ipc_win_info.index = 5; }, {"++++system msg++++TYPE_GET_IPC_WIN_INFO\n"},
         [](SystemMsg& m) { m.data.ipc_win_info = {}; }},
        {12, 0, {}, {}, [](SystemMsg&) {}},
        {13, 0, [](SystemMsg& m) { m.data.ipc_win_info = {1, 0, {100, 900, 50, 650}}; },
         {"++++system msg++++ TYPE_SET_IPC_WINDOW \n", "##IPC window (100,50),(900,650)##\n"}, {}},
        {11, 0, {}, {}, [](SystemMsg& m) { m.data.ipc_win_info = {1, 0, {100, 900, 50, 650}}; }},
        {14, 0, {}, {}, [](SystemMsg& m) { std::strcpy(m.data.version.tactordVer.data(), "17.0221.1137"); }},
        {15, 0, [](SystemMsg& m) { m.data.nValue = 11; }, {"++++system msg++++TYPE_SET_MOUSE_SENSITIVITY\n", "g_MouseSensitivityValue = 11\n"}, {}},
        {15, 0, [](SystemMsg& m) { m.data.nValue = 10; }, {"g_MouseSensitivityValue = 10\n"}, {}},
        {16, 0, {}, {"++++system msg++++ TYPE_RECOVERY_SCREEN \n"}, {}},
        // Calibration is addressed by seat; entering makes the seat's screen id
        // the same number, which the calibration then looks up.
        {17, 5, {}, {"++++system msg++++TYPE_ENTER_TS_CALI_MODE\n"}, {}},
        {18, 5, [](SystemMsg& m) { m.data.nValue = 6; },
         {"++++system msg++++TYPE_GET_TS_CALI_POINT\n", "Error, touchscreen id or point id error\n"}, {}},
        {19, 5, [&](SystemMsg& m) { m.data.ts_cali_data = {targets, 1920, 1080, 0}; },
         {"++++system msg++++TYPE_CALI_TS\n", "Error, ts calibration is not ready\n"},
         [](SystemMsg& m) { m.data.ts_cali_data.result = -2; }},
        {20, 5, {}, {"++++system msg++++TYPE_QUIT_TS_CALI_MODE\n"}, {}},
        {21, 5, [](SystemMsg& m) { m.data.ts_type = 7; }, {"++++system msg++++TYPE_CHECK_TS_TYPE\n"},
         [](SystemMsg& m) { m.data.ts_type = 0; }},
        {22, 0, [](SystemMsg& m) { m.data.ts_cali_para = {1, 2, 3, 4, 5, 6, 7, 5}; },
         {"++++system msg++++TYPE_SET_TS_CALI_PARA\n", "set ts [5] calipara data 1 2 3 4 5 6 7\n"}, {}},
        {23, 5, {}, {"get ts [5] calipara data 1 2 3 4 5 6 7\n"},
         [](SystemMsg& m) { m.data.ts_cali_para = {1, 2, 3, 4, 5, 6, 7, 5}; }},
        {23, 0, {}, {"++++system msg++++TYPE_GET_TS_CALI_PARA\n"}, {}},  // entering took seat 5 to screen id 5
        {24, 1, [](SystemMsg& m) { m.data.nValue = 0; },
         {"++++system msg++++ TYPE_SWITCH_TOUCH_SCREEN Index = 1, value=0\n", "ProcessSwitchTouchScreen Index = 1 nOpen= 0 .\n"}, {}},
        {24, 2, {}, {"nIndex = 2 error .\n"}, {}},
        {25, 0, {}, {}, {}},
        {-1, 0, {}, {}, {}},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE("type " + std::to_string(k.type) + " screen " + std::to_string(k.scr));
        const std::size_t mark = daemon_->mark();
        SystemMsg req = make_msg(k.type, k.scr);
        if (k.request)
            k.request(req);
        ASSERT_TRUE(c.send(req));
        // Without a reply the next 64 bytes must be the probe's: nothing came in between.
        SystemMsg want = k.reply ? req : make_msg(TYPE_MODE_GET, PROBE);
        if (k.reply)
            (*k.reply)(want);
        else
            ASSERT_TRUE(c.send(want));
        const auto got = c.read_reply();
        ASSERT_TRUE(got.has_value());
        if (!k.reply)
            want.data = got->data;  // the current mode
        EXPECT_EQ(std::memcmp(&*got, &want, sizeof want), 0);
        for (const std::string& line : k.lines)
            EXPECT_TRUE(logged(line, mark)) << line;
    }
}

// The mode records of both screens' clients: the event-pipeline system test.
TEST_F(ControlSocket, TheCursorIsHiddenAtOnceAndASecondClientForAScreenGetsNothing)
{
    DisplayClient main(root_.path()), late(root_.path());
    ASSERT_TRUE(main.register_for(0));
    // No mouse: the cursor timer hides the cursor within its next tick.
    const auto start = std::chrono::steady_clock::now();
    const auto hidden = main.read_event(3s);
    ASSERT_TRUE(hidden.has_value());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
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
