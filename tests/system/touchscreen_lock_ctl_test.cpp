#include "func/touchscreen/touchscreen_lock_ctl.h"

#include <gtest/gtest.h>
#include <linux/input-event-codes.h>

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "common/send_log_internal.h"
#include "func/device/drv_device.h"
#include "func/sound/sound.h"
#include "func/touchscreen/touchscreen_lock_ctl_internal.h"
#include "sim/dev_mod_cfg_emul.h"

namespace {

using emul::DevModCfgEmulator;

std::mutex g_seen_lock;  // guards every g_seen_* below
std::vector<std::string> g_seen_log;
std::vector<std::pair<int, int>> g_seen_changes;  // screen, locked
std::vector<int> g_seen_touches;
int g_seen_starts = 0;
time_t g_now = 1000;  // only the test thread moves it

void capture_log(int, const char* text)
{
    std::lock_guard<std::mutex> guard(g_seen_lock);
    g_seen_log.emplace_back(text);
}
void on_lock_change(int screen, int locked)
{
    std::lock_guard<std::mutex> guard(g_seen_lock);
    g_seen_changes.emplace_back(screen, locked);
}
void on_locked_touch(int screen)
{
    std::lock_guard<std::mutex> guard(g_seen_lock);
    g_seen_touches.push_back(screen);
}
time_t test_clock()
{
    return g_now;
}
// Stands in for the task start: the tests drive the lock logic themselves.
int no_task(VR_TASK_ID*, const char*, VR_TASK_ENTRY, void*, uint32_t, int)
{
    std::lock_guard<std::mutex> guard(g_seen_lock);
    ++g_seen_starts;
    return 0;
}
int failing_task(VR_TASK_ID*, const char*, VR_TASK_ENTRY, void*, uint32_t, int)
{
    return -1;
}

tactord::input_event ev(uint16_t type, uint16_t code, int32_t value)
{
    return {0, 0, type, code, value};
}

class TouchscreenLock : public testing::Test {
protected:
    void SetUp() override
    {
        send_log_set_sink(capture_log);
        touchscreen_set_clock(test_clock);
        touchscreen_set_task_starter(no_task);
        touchscreeninit();
        InitSoundAdapters();
        SoundSetup("wavaudio sound", nullptr, 2);
    }
    void TearDown() override
    {
        send_log_set_sink(nullptr);
        touchscreen_set_clock(nullptr);
        touchscreen_set_task_starter(nullptr);
    }

    // Hands over what the callbacks saw so far and forgets it.
    template <typename T>
    static T take(T& seen)
    {
        std::lock_guard<std::mutex> guard(g_seen_lock);
        return std::exchange(seen, {});
    }
    static bool logged(const std::vector<std::string>& lines, const std::string& part)
    {
        for (const auto& l : lines) {
            if (l.find(part) != std::string::npos)
                return true;
        }
        return false;
    }
    static std::vector<unsigned long> codes(const std::vector<DevModCfgEmulator::Request>& reqs)
    {
        std::vector<unsigned long> out;
        for (const auto& r : reqs)
            out.push_back(r.code);
        return out;
    }

    static void configure(int32_t lock_s, int32_t unlock_s)
    {
        const lock_config cfg{/*Xmax*/ 200, /*Xmin*/ 100, /*Ymax*/ 60, /*Ymin*/ 10, lock_s, unlock_s};
        ASSERT_EQ(touchscreen_lock_config(&cfg, on_lock_change, on_locked_touch), 0);
    }
};

TEST_F(TouchscreenLock, PressesAndCoordinatesAreWrittenAndAPressClicksAtTheDriversVolume)
{
    DevModCfgEmulator drv;
    drv.set_volume(5);

    const auto press = ev(EV_KEY, BTN_TOUCH, 1);
    const auto x = ev(EV_ABS, ABS_X, 150);
    const auto y = ev(EV_ABS, ABS_Y, 40);
    const auto release = ev(EV_KEY, BTN_TOUCH, 0);
    const auto syn = ev(EV_SYN, SYN_REPORT, 0);
    for (const auto* e : {&press, &x, &y, &syn, &release})
        touchscreen_set_coordinate(SUB_SCREEN, e);

    auto reqs = drv.requests();
    // Every event reads the volume (from screen 0); the touch events write.
    EXPECT_EQ(codes(reqs), (std::vector<unsigned long>{161, 164, 161, 164, 161, 164, 161, 161, 164}));
    for (size_t i : {0u, 2u, 4u, 6u, 7u})
        EXPECT_EQ(reqs[i].record.id, 0);
    EXPECT_EQ(reqs[1].record.id, 1);
    EXPECT_EQ(reqs[1].record.keydown, 1);
    EXPECT_EQ(reqs[3].record.xcord, 150);
    EXPECT_EQ(reqs[5].record.ycord, 40);
    EXPECT_EQ(reqs[8].record.keydown, 0);
    EXPECT_EQ(reqs[8].record.xcord, 150);
    EXPECT_EQ(reqs[8].record.status, 1);

    // Only the press clicked.
    EXPECT_EQ(sound_play_count(), 1u);
    const sound_play_request played = sound_last_request();
    EXPECT_EQ(played.sound, 44);
    EXPECT_EQ(played.volume, 5);
    EXPECT_EQ(played.screen, SUB_SCREEN);
    EXPECT_EQ(played.param3 | played.param4 | played.param6, 0);
    EXPECT_TRUE(take(g_seen_log).empty());

    // Without the click: no volume read, no sound, the same write.
    drv.clear_requests();
    const auto other = ev(EV_KEY, KEY_A, 1);
    touchscreen_set_coordinate_with_no_play(IPC_SCREEN, &press);
    touchscreen_set_coordinate_with_no_play(IPC_SCREEN, &other);
    reqs = drv.requests();
    ASSERT_EQ(codes(reqs), std::vector<unsigned long>{164});
    EXPECT_EQ(reqs[0].record.id, 2);
    EXPECT_EQ(reqs[0].record.keydown, 1);
    EXPECT_EQ(sound_play_count(), 1u);
}

TEST_F(TouchscreenLock, NoClickAtVolumeZeroAndAnUnreadableVolumeIsLogged)
{
    DevModCfgEmulator drv;
    const auto press = ev(EV_KEY, BTN_LEFT, 1);
    touchscreen_set_coordinate(MAIN_SCREEN, &press);
    EXPECT_EQ(sound_play_count(), 0u);
    EXPECT_TRUE(take(g_seen_log).empty());

    drv.fail(DEV_MOD_CFG_GET);
    touchscreen_set_coordinate(MAIN_SCREEN, &press);
    EXPECT_EQ(sound_play_count(), 0u);
    const auto lines = take(g_seen_log);
    EXPECT_TRUE(logged(lines, "touchscreen_get_key_volume(): get screen 0 _key_volume error.\n"));
    EXPECT_TRUE(logged(lines, "touchscreen_set_coordinate(): get key volume failed.\n"));
    // The press is still mirrored.
    EXPECT_EQ(drv.requests().back().code, DEV_MOD_CFG_SET_COORD);
}

TEST_F(TouchscreenLock, StatusAndVolumeAreReadBackAndScreensOutsideTheThreeAreRefused)
{
    DevModCfgEmulator drv;
    const auto press = ev(EV_KEY, BTN_TOUCH, 1);
    for (int screen : {-1, 3, 1000}) {
        EXPECT_EQ(touchscreen_get_lock_status(screen), -1);
        EXPECT_EQ(touchscreen_lock(screen), -1);
        EXPECT_EQ(touchscreen_unlock(screen), -1);
        touchscreen_set_coordinate(screen, &press);
        touchscreen_set_coordinate_with_no_play(screen, &press);
    }
    EXPECT_TRUE(drv.requests().empty());
    EXPECT_TRUE(take(g_seen_log).empty());

    drv.set_state(SUB_SCREEN, {1, 0, 0, 0, 0, 0});
    drv.set_volume(7);
    EXPECT_EQ(touchscreen_get_lock_status(SUB_SCREEN), 0);
    EXPECT_EQ(touchscreen_get_lock_status(MAIN_SCREEN), 1);
    EXPECT_EQ(touchscreen_get_key_volume(IPC_SCREEN), 7);
    EXPECT_EQ(drv.requests().back().record.id, 0);

    testing::internal::CaptureStdout();
    dump_dev_cfg();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("screen: 1 keydown: 0  status: 0\n"), std::string::npos) << out;
    EXPECT_NE(out.find("           xcord: 0  ycord: 0  key_volume: 7\n"), std::string::npos) << out;
}

TEST_F(TouchscreenLock, ExplicitLockAndUnlockWriteTheStatusAndNotify)
{
    DevModCfgEmulator drv;
    configure(3, 2);
    EXPECT_EQ(touchscreen_lock(SUB_SCREEN), 0);
    EXPECT_EQ(drv.state(SUB_SCREEN).status, 0);
    EXPECT_EQ(touchscreen_get_lock_status(SUB_SCREEN), 0);
    EXPECT_EQ(touchscreen_unlock(SUB_SCREEN), 0);
    EXPECT_EQ(drv.state(SUB_SCREEN).status, 1);
    EXPECT_EQ(codes(drv.requests()), (std::vector<unsigned long>{168, 161, 168}));
    EXPECT_EQ(take(g_seen_changes), (std::vector<std::pair<int, int>>{{1, 1}, {1, 0}}));
}

TEST_F(TouchscreenLock, ConfigurationHappensOnceAndNeedsEveryArgument)
{
    DevModCfgEmulator drv;
    const lock_config cfg{200, 100, 60, 10, 3, 2};
    EXPECT_EQ(touchscreen_lock_config(nullptr, on_lock_change, on_locked_touch), -1);
    EXPECT_EQ(touchscreen_lock_config(&cfg, nullptr, on_locked_touch), -1);
    EXPECT_TRUE(logged(take(g_seen_log), "touchscreen_lock_config(): input parameter error\n"));

    // A task that cannot start leaves it unconfigured, so a later call retries.
    touchscreen_set_task_starter(failing_task);
    EXPECT_EQ(touchscreen_lock_config(&cfg, on_lock_change, on_locked_touch), -1);
    EXPECT_TRUE(logged(take(g_seen_log), "Create touch screen process thread error!\n"));
    touchscreen_set_task_starter(no_task);
    configure(3, 2);

    const lock_config other{900, 800, 900, 800, 30, 20};
    EXPECT_EQ(touchscreen_lock_config(&other, on_lock_change, on_locked_touch), 0);
    {
        std::lock_guard<std::mutex> guard(g_seen_lock);
        EXPECT_EQ(g_seen_starts, 1);
    }
    for (const ts_lock_info_t& info : scr_lock_info) {
        EXPECT_EQ(info.lock_area.xmin, 100);
        EXPECT_EQ(info.lock_area.xmax, 200);
        EXPECT_EQ(info.lock_area.ymin, 10);
        EXPECT_EQ(info.lock_area.ymax, 60);
        EXPECT_EQ(info.lock_interval, 3);
        EXPECT_EQ(info.unlock_interval, 2);
    }
}

TEST_F(TouchscreenLock, HeldFingerLocksOnceAndUnlocksOnlyAfterLeavingAndHoldingAgain)
{
    DevModCfgEmulator drv;
    configure(/*lock*/ 3, /*unlock*/ 2);
    auto pass_at = [](time_t t) {
        g_now = t;
        touchscreen_lock_logic_process();
    };

    // Lifting the finger restarts the timing.
    drv.set_touch(MAIN_SCREEN, 1, 150, 40);
    pass_at(997);
    drv.set_touch(MAIN_SCREEN, 0, 150, 40);
    pass_at(999);
    drv.set_touch(MAIN_SCREEN, 1, 150, 40);
    pass_at(1000);  // timing starts
    pass_at(1002);
    EXPECT_TRUE(take(g_seen_changes).empty());
    drv.clear_requests();
    pass_at(1003);
    EXPECT_EQ(take(g_seen_changes), (std::vector<std::pair<int, int>>{{0, 1}}));
    const auto reqs = drv.requests();
    ASSERT_EQ(codes(reqs), (std::vector<unsigned long>{161, 160, 161, 161}));
    EXPECT_EQ(reqs[1].record.id, 0);
    EXPECT_EQ(reqs[1].record.status, 0);
    EXPECT_EQ(drv.state(MAIN_SCREEN).status, 0);

    // Still held: no unlock however long, only locked touches.
    take(g_seen_touches);
    pass_at(1010);
    pass_at(1020);
    EXPECT_TRUE(take(g_seen_changes).empty());
    EXPECT_EQ(take(g_seen_touches), (std::vector<int>{0, 0}));

    // Leave the area (finger still down: a locked touch), come back and hold.
    drv.set_touch(MAIN_SCREEN, 1, 500, 40);
    pass_at(1021);
    EXPECT_EQ(take(g_seen_touches), std::vector<int>{0});
    drv.set_touch(MAIN_SCREEN, 1, 100, 60);  // the area's edges count
    pass_at(1022);
    pass_at(1023);
    EXPECT_TRUE(take(g_seen_changes).empty());
    pass_at(1024);
    EXPECT_EQ(take(g_seen_changes), (std::vector<std::pair<int, int>>{{0, 0}}));
    EXPECT_EQ(drv.state(MAIN_SCREEN).status, 1);
}

TEST_F(TouchscreenLock, MissingOrFailingDeviceGivesTheMessagesAndMinusOne)
{
    // No emulator yet: there is no "/dev/dev_mod_cfg".
    EXPECT_EQ(touchscreen_get_lock_status(MAIN_SCREEN), -1);
    auto lines = take(g_seen_log);
    EXPECT_TRUE(logged(lines, "touchscreen_lock_ctl.cpp:"));
    EXPECT_TRUE(logged(lines, "get_dev_mod_cfg_info(): open failed!\n"));
    EXPECT_TRUE(logged(lines, "touchscreen_get_lock_status(): get screen 0 _lock status error.\n"));

    EXPECT_EQ(touchscreen_lock(SUB_SCREEN), -1);
    lines = take(g_seen_log);
    EXPECT_TRUE(logged(lines, "setmodconfig(): open failed!\n"));
    EXPECT_TRUE(logged(lines, "touchscreen_lock(): set lock config to lock status error.\n"));
    EXPECT_EQ(touchscreen_unlock(SUB_SCREEN), -1);
    EXPECT_TRUE(
        logged(take(g_seen_log), "touchscreen_unlock(): set lock config to unlock status error.\n"));
    EXPECT_EQ(touchscreen_get_key_volume(MAIN_SCREEN), -1);

    touchscreen_lock_logic_process();
    lines = take(g_seen_log);
    for (int s = 0; s < 3; ++s)
        EXPECT_TRUE(logged(lines, "get touch screen " + std::to_string(s) + " config failed.\n"));

    testing::internal::CaptureStdout();
    dump_dev_cfg();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "get screen 0 config error.\n");

    // The device is there but refuses the request.
    DevModCfgEmulator drv;
    drv.fail(DEV_MOD_CFG_GET);
    drv.fail(DEV_MOD_CFG_SET_COORD);
    EXPECT_EQ(touchscreen_get_lock_status(IPC_SCREEN), -1);
    EXPECT_TRUE(logged(take(g_seen_log), "get_dev_mod_cfg_info(): ioctl failed!\n"));
    dev_mod_cfg_t rec{0, 1, 2, 1, 0, 0};
    EXPECT_EQ(setmodconfig(DEV_MOD_CFG_SET_COORD, &rec, sizeof(rec)), -1);
    EXPECT_TRUE(logged(take(g_seen_log), "setmodconfig(): ioctl failed!\n"));
}

}  // namespace
