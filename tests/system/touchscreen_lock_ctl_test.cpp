// The touchscreen lock against the emulated "/dev/dev_mod_cfg": touches mirrored to the driver, the key
// click, explicit and timed lock and unlock, and the message and -1 of every failure.
#include "func/touchscreen/touchscreen_lock_ctl.h"

#include "common/send_log_internal.h"
#include "func/device/drv_device.h"
#include "func/sound/sound.h"
#include "func/touchscreen/touchscreen_lock_ctl_internal.h"
#include "sim/dev_mod_cfg_emul.h"
#include "support/system_common.h"

namespace {

using emul::DevModCfgEmulator;
using emul::ev;
using Changes = std::vector<std::pair<int, int>>;  // screen, locked
using Codes = std::vector<unsigned long>;

// What the adapter logger and the callbacks saw: all on this thread, as no task is started.
std::vector<std::string> g_log;
Changes g_changes;
std::vector<int> g_touches;
int g_starts = 0;
time_t g_now = 1000;
const tactord::input_event kPress = ev(EV_KEY, BTN_TOUCH, 1);
const lock_config kConfig{/*Xmax*/ 200, /*Xmin*/ 100, /*Ymax*/ 60, /*Ymin*/ 10, /*lock*/ 3, /*unlock*/ 2};

bool logged(const std::string& part)
{
    return std::ranges::any_of(g_log, [&](const std::string& l) { return l.find(part) != std::string::npos; });
}
void on_lock_change(int screen, int locked) { g_changes.emplace_back(screen, locked); }
void on_locked_touch(int screen) { g_touches.push_back(screen); }
int no_task(VR_TASK_ID*, const char*, VR_TASK_ENTRY, void*, uint32_t, int) { return ++g_starts, 0; }
int failing_task(VR_TASK_ID*, const char*, VR_TASK_ENTRY, void*, uint32_t, int) { return -1; }
Codes codes(const DevModCfgEmulator& drv)
{
    Codes out;
    for (const auto& r : drv.requests())
        out.push_back(r.code);
    return out;
}

class TouchscreenLock : public testing::Test {
protected:
    void SetUp() override
    {
        g_log.clear();
        send_log_set_sink([](int, const char* text) { g_log.emplace_back(text); });
        touchscreen_set_clock([] { return g_now; });
        touchscreen_set_task_starter(no_task);
        touchscreeninit();
        InitSoundAdapters();
        SoundSetup("wavaudio sound", nullptr, 2);
    }
    static int configure(const lock_config& cfg = kConfig) { return touchscreen_lock_config(&cfg, on_lock_change, on_locked_touch); }
};

TEST_F(TouchscreenLock, TouchEventsAreMirroredAndOnlyAPressClicksAtTheDriversVolume)
{
    DevModCfgEmulator drv;
    touchscreen_set_coordinate(MAIN_SCREEN, &kPress);  // volume 0: mirrored, silently
    EXPECT_EQ(sound_play_count(), 0u);

    drv.clear_requests();
    drv.set_volume(5);
    for (const auto& e :
         {kPress, ev(EV_ABS, ABS_X, 150), ev(EV_ABS, ABS_Y, 40), ev(EV_SYN, SYN_REPORT, 0), ev(EV_KEY, BTN_TOUCH, 0)})
        touchscreen_set_coordinate(SUB_SCREEN, &e);
    // Every event reads the volume (from screen 0); the touch events write.
    auto reqs = drv.requests();
    ASSERT_EQ(codes(drv), (Codes{161, 164, 161, 164, 161, 164, 161, 161, 164}));
    for (size_t i : {0u, 2u, 4u, 6u, 7u})
        EXPECT_EQ(reqs[i].record.id, 0);
    EXPECT_TRUE(reqs[1].record.id == 1 && reqs[1].record.keydown == 1 && reqs[3].record.xcord == 150 &&
                reqs[5].record.ycord == 40);
    EXPECT_TRUE(reqs[8].record.keydown == 0 && reqs[8].record.xcord == 150 && reqs[8].record.status == 1);
    const sound_play_request played = sound_last_request();
    EXPECT_EQ(sound_play_count(), 1u);
    EXPECT_TRUE(played.sound == 44 && played.volume == 5 && played.screen == SUB_SCREEN &&
                (played.param3 | played.param4 | played.param6) == 0);
    EXPECT_TRUE(std::exchange(g_log, {}).empty());

    // Without the click: no volume read, no sound, the same write.
    drv.clear_requests();
    for (const auto& e : {kPress, ev(EV_KEY, KEY_A, 1)})
        touchscreen_set_coordinate_with_no_play(IPC_SCREEN, &e);
    ASSERT_EQ(codes(drv), Codes{164});
    EXPECT_TRUE(drv.requests()[0].record.id == 2 && drv.requests()[0].record.keydown == 1);
    EXPECT_EQ(sound_play_count(), 1u);

    // An unreadable volume is logged; the press is still mirrored.
    drv.fail(DEV_MOD_CFG_GET);
    touchscreen_set_coordinate(MAIN_SCREEN, &kPress);
    EXPECT_EQ(sound_play_count(), 1u);
    EXPECT_TRUE(logged("touchscreen_set_coordinate(): get key volume failed.\n"));
    EXPECT_EQ(drv.requests().back().code, DEV_MOD_CFG_SET_COORD);
}

TEST_F(TouchscreenLock, StatusAndVolumeAreReadBackAndScreensOutsideTheThreeAreRefused)
{
    DevModCfgEmulator drv;
    for (int screen : {-1, 3, 1000}) {
        EXPECT_EQ(touchscreen_get_lock_status(screen), -1);
        EXPECT_EQ(touchscreen_lock(screen), -1);
        EXPECT_EQ(touchscreen_unlock(screen), -1);
        touchscreen_set_coordinate(screen, &kPress);
        touchscreen_set_coordinate_with_no_play(screen, &kPress);
    }
    EXPECT_TRUE(drv.requests().empty() && std::exchange(g_log, {}).empty());

    drv.set_state(SUB_SCREEN, {1, 0, 0, 0, 0, 0});
    drv.set_volume(7);
    EXPECT_EQ(touchscreen_get_lock_status(SUB_SCREEN), 0);
    EXPECT_EQ(touchscreen_get_lock_status(MAIN_SCREEN), 1);
    EXPECT_EQ(touchscreen_get_key_volume(IPC_SCREEN), 7);
    EXPECT_EQ(drv.requests().back().record.id, 0);
    testing::internal::CaptureStdout();
    dump_dev_cfg();
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::HasSubstr("key_volume: 7\nscreen: 1 keydown: 0  status: 0\n"
                                   "           xcord: 0  ycord: 0  key_volume: 0\n"));

    ASSERT_EQ(configure(), 0);  // to be notified
    drv.clear_requests();
    EXPECT_EQ(touchscreen_lock(SUB_SCREEN), 0);
    EXPECT_EQ(drv.state(SUB_SCREEN).status, 0);
    EXPECT_EQ(touchscreen_unlock(SUB_SCREEN), 0);
    EXPECT_EQ(drv.state(SUB_SCREEN).status, 1);
    EXPECT_EQ(codes(drv), (Codes{168, 168}));
    EXPECT_EQ(std::exchange(g_changes, {}), (Changes{{1, 1}, {1, 0}}));
}

// Configuration needs every argument and happens once: a second one changes nothing.
TEST_F(TouchscreenLock, ConfiguredOnceAHeldFingerLocksOnceAndUnlocksOnlyAfterLeavingAndHoldingAgain)
{
    DevModCfgEmulator drv;
    EXPECT_EQ(touchscreen_lock_config(nullptr, on_lock_change, on_locked_touch), -1);
    EXPECT_EQ(touchscreen_lock_config(&kConfig, nullptr, on_locked_touch), -1);
    EXPECT_TRUE(logged("touchscreen_lock_config(): input parameter error\n"));
    // A task that cannot start leaves it unconfigured, so a later call retries.
    touchscreen_set_task_starter(failing_task);
    EXPECT_EQ(configure(), -1);
    EXPECT_TRUE(logged("Create touch screen process thread error!\n"));
    touchscreen_set_task_starter(no_task);
    ASSERT_EQ(configure(), 0);  // lock after 3 s, unlock after 2 s in x 100..200, y 10..60
    EXPECT_EQ(configure({900, 800, 900, 800, 30, 20}), 0);
    EXPECT_EQ(std::exchange(g_starts, {}), 1);
    for (const ts_lock_info_t& i : scr_lock_info)
        EXPECT_EQ(std::vector<int>({i.lock_area.xmin, i.lock_area.xmax, i.lock_area.ymin, i.lock_area.ymax, i.lock_interval,
                                    i.unlock_interval}),
                  std::vector<int>({100, 200, 10, 60, 3, 2}));
    const struct {
        int down, x, y;
        time_t at;
        Changes changes;
        std::vector<int> locked_touches;
    } steps[] = {
        {1, 150, 40, 997, {}, {}}, {0, 150, 40, 999, {}, {}},  // lifting the finger restarts the timing
        {1, 150, 40, 1000, {}, {}}, {1, 150, 40, 1002, {}, {}}, {1, 150, 40, 1003, {{0, 1}}, {}},
        {1, 150, 40, 1010, {}, {0}}, {1, 150, 40, 1020, {}, {0}},  // still held: no unlock however long
        {1, 500, 40, 1021, {}, {0}},  // out of the area, still down
        {1, 100, 60, 1022, {}, {0}}, {1, 100, 60, 1023, {}, {0}}, {1, 100, 60, 1024, {{0, 0}}, {}},  // edges count
    };
    for (const auto& s : steps) {
        drv.set_touch(MAIN_SCREEN, s.down, s.x, s.y);
        g_now = s.at;
        touchscreen_lock_logic_process();
        EXPECT_EQ(std::exchange(g_changes, {}), s.changes) << s.at;
        EXPECT_EQ(std::exchange(g_touches, {}), s.locked_touches) << s.at;
        EXPECT_EQ(drv.state(MAIN_SCREEN).status, s.at >= 1003 && s.at < 1024 ? 0 : 1) << s.at;
    }
    EXPECT_EQ(std::ranges::count(codes(drv), 160UL), 2);  // the timed changes' writes
}

TEST_F(TouchscreenLock, MissingOrFailingDeviceGivesTheMessagesAndMinusOne)
{
    // No emulator yet: there is no "/dev/dev_mod_cfg".
    EXPECT_EQ(touchscreen_get_lock_status(MAIN_SCREEN), -1);
    EXPECT_EQ(touchscreen_lock(SUB_SCREEN), -1);
    EXPECT_EQ(touchscreen_unlock(SUB_SCREEN), -1);
    EXPECT_EQ(touchscreen_get_key_volume(MAIN_SCREEN), -1);
    touchscreen_lock_logic_process();
    for (const std::string line : {"touchscreen_lock_ctl.cpp:", "get_dev_mod_cfg_info(): open failed!\n",
                                   "touchscreen_get_lock_status(): get screen 0 _lock status error.\n",
                                   "setmodconfig(): open failed!\n", "touchscreen_lock(): set lock config to lock status error.\n",
                                   "touchscreen_unlock(): set lock config to unlock status error.\n",
                                   "touchscreen_get_key_volume(): get screen 0 _key_volume error.\n",
                                   "get touch screen 0 config failed.\n", "get touch screen 1 config failed.\n",
                                   "get touch screen 2 config failed.\n"})
        EXPECT_TRUE(logged(line)) << line;
    testing::internal::CaptureStdout();
    dump_dev_cfg();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "get screen 0 config error.\n");

    // The device is there but refuses the request.
    DevModCfgEmulator drv;
    drv.fail(DEV_MOD_CFG_GET);
    drv.fail(DEV_MOD_CFG_SET_COORD);
    EXPECT_EQ(touchscreen_get_lock_status(IPC_SCREEN), -1);
    EXPECT_TRUE(logged("get_dev_mod_cfg_info(): ioctl failed!\n"));
    dev_mod_cfg_t rec{0, 1, 2, 1, 0, 0};
    EXPECT_EQ(setmodconfig(DEV_MOD_CFG_SET_COORD, &rec, sizeof(rec)), -1);
    EXPECT_TRUE(logged("setmodconfig(): ioctl failed!\n"));
}

}  // namespace
