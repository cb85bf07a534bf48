// The pipeline where the IPC window matters; the rest is the system tests'.
#include "common/inputevent_handle.h"

#include "support/unit_common.h"

namespace {

struct Device : _InputDev {
    Device(const char* role, int kind, int at_seat)
    {
        std::tie(name, type, seat, usb) = std::tuple(const_cast<char*>(role), kind, at_seat, 1);
        path = const_cast<char*>("usb-musb-hdrc.0-1/input0");
        abs = {{{0, 0, 4095, 0, 0, 0}, {0, 0, 4095, 0, 0, 0}}};
    }
};

class IpcWindow : public ::testing::Test {
protected:
    // Clone mode on 1920 x 1080, pointer at (100, 100), a raw-record link, a window on main.
    void SetUp() override
    {
        pipeline_reset();
        output_info_init();
        gs_ipcType = 1;
        gs_ipcClientExist.store(1);
        IpcWinInfo win{1, MAIN_SCREEN, {100, 900, 50, 650}};
        ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    }
    void TearDown() override
    {
        gs_ipcType = 0;
        gs_ipcClientExist.store(0);
        pipeline_reset();
    }
    static void play(_InputDev& dev, const Evs& evs, int32_t sec = 0)
    {
        for (const Ev& e : evs) {
            tactord::input_event ev{sec, 0, static_cast<uint16_t>(e.type), static_cast<uint16_t>(e.code), e.value};
            ProcessEvdevEvent(&dev, &ev);
        }
    }
    Evs got(int screen) { return testsupport::brief(clients_.events(screen)); }

    testsupport::ScratchRoot root_;
    testsupport::ScreenClients clients_{{0, 1, 2}};
    Device panel_{"touchscreen_main", INPUT_TYPE_TOUCHSCREEN, 5};
    Device mouse_{"touchscreen_sub", INPUT_TYPE_MOUSE, 2};
};

// 1024 of 4095 is x 479 and y 269 on the 1920 x 1080 main output.
const Evs kTouchAt1024 = {{EV_ABS, ABS_X, 1024}, {EV_ABS, ABS_Y, 1024}, {EV_KEY, BTN_TOUCH, 1}, {EV_SYN, SYN_REPORT, 0}};
const Evs kRelease = {{EV_KEY, BTN_TOUCH, 0}, {EV_SYN, SYN_REPORT, 0}};
const Evs kFocusIn = {{27, 0, 0}, {26, 0, 0}, {28, 0, 0}, {28, 1, 0}, {28, 2, 0}}, kOut = {{27, 1, 0}, {26, 1, 0}};

// Leaving, the IPC screen keeps one slot and a frozen position.
TEST_F(IpcWindow, MouseEntersItWindowRelativeAndLeavesItOntoTheHostWithTheContactFrozen)
{
    play(mouse_, {{EV_REL, REL_X, 200}, {EV_REL, REL_X, 1000}, {EV_REL, REL_X, 5000}});
    EXPECT_EQ(got(IPC_SCREEN), (Evs{{27, 0, 0}, {EV_REL, REL_X, 200}, {27, 1, 0}}));
    // Out of the window at x 1300, then clamped to the host output.
    EXPECT_EQ(got(MAIN_SCREEN), (Evs{{27, 1, 0}, {27, 0, 0}, {EV_ABS, ABS_X, 1300}, {EV_ABS, ABS_X, 1919}}));

    play(panel_, {{EV_ABS, ABS_MT_TRACKING_ID, 7}});  // the contact is slot 0's
    play(panel_, kTouchAt1024);
    got(IPC_SCREEN);
    play(panel_, {{EV_ABS, ABS_MT_SLOT, 1}, {EV_ABS, ABS_MT_POSITION_X, 2000}, {EV_ABS, ABS_MT_SLOT, 0},
                  {EV_SYN, SYN_REPORT, 0}});
    play(mouse_, {{EV_REL, REL_X, 1000}});  // the cursor leaves the window
    play(panel_, {{EV_ABS, ABS_X, 1500}});
    EXPECT_EQ(got(IPC_SCREEN), (Evs{{EV_ABS, ABS_MT_SLOT, 0}, {EV_SYN, 0, 0}, {27, 1, 0}, {EV_ABS, ABS_X, 379}}));
}

TEST_F(IpcWindow, ATouchInItIsTheIpcScreensOnlyOutsideItsCutOuts)
{
    play(panel_, kTouchAt1024 + kRelease);
    // Cursor and focus follow into the window; the contact is in window coordinates after the
    // host x that took the cursor there.
    EXPECT_EQ(got(IPC_SCREEN), (kFocusIn + Evs{{EV_ABS, ABS_X, 479}, {EV_ABS, ABS_X, 379}, {EV_ABS, ABS_Y, 219},
                                              {EV_KEY, BTN_TOUCH, 1}, {0, 0, 0}, {EV_KEY, BTN_TOUCH, 0}, {0, 0, 0}}));
    EXPECT_EQ(got(MAIN_SCREEN), kOut);
    RECT_BOX cut{400, 500, 200, 300};
    ASSERT_EQ(handle_ipc_win_modify(OP_IPC_WIN_ADD, &cut, MAIN_SCREEN), 0);
    play(panel_, kTouchAt1024 + kRelease);
    // Back on the host with the focus: host coordinates, as a mouse button.
    EXPECT_EQ(got(IPC_SCREEN), kOut);
    EXPECT_EQ(got(MAIN_SCREEN), (kFocusIn + Evs{{EV_ABS, ABS_X, 479}, {EV_ABS, ABS_X, 479}, {EV_ABS, ABS_Y, 269},
                                               {EV_KEY, BTN_MOUSE, 1}, {0, 0, 0}, {EV_KEY, BTN_MOUSE, 0}, {0, 0, 0}}));
}

// Switched off: nothing changes, but a second touch-up within 0.8 s sends the wake-up key.
TEST_F(IpcWindow, ASwitchedOffPanelOnlyWakesOnADoubleTap)
{
    ProcessSwitchTouchScreen(TOUCHSCREEN_SUB, 0);  // the USB panel
    const Evs tap = {kTouchAt1024[0], kTouchAt1024[1], kTouchAt1024[2], kRelease[0]};
    for (int sec : {100, 100, 200, 201})  // touch-ups 1 s apart are too slow
        play(panel_, tap, sec);
    EXPECT_EQ(got(IPC_SCREEN), Evs{});
    EXPECT_EQ(got(MAIN_SCREEN), (Evs{{EV_KEY, 199, 1}, {EV_KEY, 199, 0}}));
    EXPECT_EQ(std::make_tuple(get_cursor_client(&screen_info), get_focus_client(&screen_info), screen_info.x),
              std::make_tuple(0, 0, 100));
    ProcessSwitchTouchScreen(TOUCHSCREEN_SUB, 1);
    play(panel_, tap);
    EXPECT_EQ(get_cursor_client(&screen_info), IPC_SCREEN);
}

// Identifying the board panel again at every switch of seat roles reuses one descriptor.
TEST_F(IpcWindow, ThePanelIdIsReadThroughOneDescriptor)
{
    testsupport::write_file(root_.at("/proc/atmel_product"), "2151");
    Device sub{"touchscreen_sub", INPUT_TYPE_TOUCHSCREEN, 2};
    std::vector<int> lowest_free_fd;
    for (int i = 0; i < 3; ++i) {
        play(panel_, {{EV_ABS, ABS_X, 1}});
        ASSERT_EQ(PID_flag, 1);            // identified ...
        play(sub, {{EV_ABS, ABS_X, 1}});  // ... and asked for again
        lowest_free_fd.push_back(dup(0));
        close(lowest_free_fd.back());
    }
    EXPECT_EQ(lowest_free_fd[2], lowest_free_fd[1]);
}

}  // namespace
