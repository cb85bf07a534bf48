// Touchscreen lock control: mirrors the touch state of the three screens into
// the kernel configuration device, plays the key click on a press, and locks
// a screen when a finger is held on a configured area for a set time
// (holding it there again for another set time unlocks it).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <mutex>

#include "common/tactord_types.h"

inline constexpr const char* DEV_MOD_CFG_PATH = "/dev/dev_mod_cfg";
inline constexpr int TS_SCREEN_COUNT = 3;

// Requests on the configuration device.
inline constexpr unsigned long DEV_MOD_CFG_SET_LOCK = 160;   // timed lock or unlock
inline constexpr unsigned long DEV_MOD_CFG_GET = 161;        // read the screen's record
inline constexpr unsigned long DEV_MOD_CFG_SET_COORD = 164;  // coordinate or press change
inline constexpr unsigned long DEV_MOD_CFG_SET_LOCK_EXPLICIT = 168;  // touchscreen_(un)lock

// Sound number of the key click.
inline constexpr int TS_KEY_CLICK_SOUND = 44;

// The record exchanged with the configuration device.
struct dev_mod_cfg_t {
    int32_t id;          // screen index 0..2
    int32_t xcord;       // last absolute X of a touch
    int32_t ycord;       // last absolute Y
    int32_t status;      // 1 unlocked (touches pass), 0 locked
    int32_t keydown;     // value of the last BTN_TOUCH/BTN_LEFT event
    int32_t key_volume;  // key-click volume kept by the driver
};
static_assert(sizeof(dev_mod_cfg_t) == 24);
static_assert(offsetof(dev_mod_cfg_t, id) == 0);
static_assert(offsetof(dev_mod_cfg_t, xcord) == 4);
static_assert(offsetof(dev_mod_cfg_t, ycord) == 8);
static_assert(offsetof(dev_mod_cfg_t, status) == 12);
static_assert(offsetof(dev_mod_cfg_t, keydown) == 16);
static_assert(offsetof(dev_mod_cfg_t, key_volume) == 20);

struct lock_area_t {
    int32_t xmin;
    int32_t xmax;
    int32_t ymin;
    int32_t ymax;
};

// The caller's lock configuration; intervals in seconds.
struct lock_config {
    int32_t Xmax;
    int32_t Xmin;
    int32_t Ymax;
    int32_t Ymin;
    int32_t lock_interval;
    int32_t unlock_interval;
};

// Called with the screen and 1 when it became locked, 0 when unlocked.
using lock_unlock_notify_callback = void (*)(int screen, int locked);
// Called with the screen for a touch while it is locked.
using touch_lock_notify_callback = void (*)(int screen);

struct ts_lock_info_t {
    std::mutex mux;  // guards every other field of this screen's record
    dev_mod_cfg_t lock_info;
    lock_area_t lock_area;
    int32_t lock_interval;
    int32_t unlock_interval;
    int32_t lock_status;    // 1 locked, 0 unlocked
    int32_t recent_status;  // 1 after a lock change until the finger leaves
    int32_t lock_enable;
    lock_unlock_notify_callback lock_unlock_notify;
    touch_lock_notify_callback lock_touch_notify;
    time_t start_time;  // 0: not timing
    timespec st;
    timespec et;
};
extern std::array<ts_lock_info_t, TS_SCREEN_COUNT> scr_lock_info;

// Resets the three records (unlocked, lock disabled, no callbacks). Returns 1.
int touchscreeninit();

// Configures the timed lock for all three screens and starts the
// "touchscreen process" task, once per process (later calls return 0 and
// change nothing). 0, or -1 for a null argument or when the task cannot start.
// The callbacks run on that task, with no screen record locked.
int touchscreen_lock_config(const lock_config* cfg, lock_unlock_notify_callback lock_unlock_callback,
                            touch_lock_notify_callback lock_touch_callback);

// Mirror a touch event into the screen's record (other events are ignored);
// the first also plays the key click on a press. Screens outside 0..2 are
// ignored.
void touchscreen_set_coordinate(int screen, const tactord::input_event* ev);
void touchscreen_set_coordinate_with_no_play(int screen, const tactord::input_event* ev);

// The driver's status of the screen (1 unlocked, 0 locked), or -1.
int touchscreen_get_lock_status(int screen);
// The driver's key-click volume (always screen 0's record), or -1.
int touchscreen_get_key_volume(int screen);

int touchscreen_lock(int screen);
int touchscreen_unlock(int screen);

// One pass of the timed lock logic over the three screens; the task runs it
// every 100 ms.
void touchscreen_lock_logic_process();

// Prints the three records to standard output.
void dump_dev_cfg();

// One request on the configuration device with a 24-byte record: 0 or -1.
int setmodconfig(unsigned long request, void* record, int len);
// Reads the screen's record from the driver into scr_lock_info: 0 or -1.
int get_dev_mod_cfg_info(int screen);
