#include "func/touchscreen/touchscreen_lock_ctl.h"

#include <fcntl.h>
#include <linux/input-event-codes.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "common/send_log.h"
#include "func/sound/sound.h"
#include "func/touchscreen/touchscreen_lock_ctl_internal.h"
#include "vr_os.h"

std::array<ts_lock_info_t, TS_SCREEN_COUNT> scr_lock_info;

namespace {

time_t system_clock_seconds()
{
    return time(nullptr);
}

std::atomic<ts_clock_fn> g_clock{system_clock_seconds};
std::atomic<ts_task_starter_fn> g_task_starter{VR_CreateTask};

std::mutex g_config_lock;  // guards g_configured and the start of the task
bool g_configured = false;

bool valid_screen(int screen)
{
    return screen >= 0 && screen < TS_SCREEN_COUNT;
}

// touchscreen_set_coordinate writes keydown and the coordinates without the
// screen's mutex (the touch path takes no lock), so every access to those
// three fields is a relaxed atomic one.
int32_t load_field(int32_t& field)
{
    return std::atomic_ref<int32_t>(field).load(std::memory_order_relaxed);
}
void store_field(int32_t& field, int32_t value)
{
    std::atomic_ref<int32_t>(field).store(value, std::memory_order_relaxed);
}

// Owns a descriptor of the configuration device for one request.
class dev_fd {
public:
    explicit dev_fd(int fd) : fd_(fd) {}
    ~dev_fd()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    dev_fd(const dev_fd&) = delete;
    dev_fd& operator=(const dev_fd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// One request with the screen's record. A failure is logged at the caller's
// position (func, line), as if the caller had logged it itself.
int checked_request(unsigned long request, dev_mod_cfg_t* record, const char* func, int line)
{
    const dev_fd fd(open(DEV_MOD_CFG_PATH, O_RDWR | O_CLOEXEC));
    if (fd.get() < 0) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): open failed!\n", __FILE_NAME__, line, func);
        return -1;
    }
    if (ioctl(fd.get(), request, record) < 0) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): ioctl failed!\n", __FILE_NAME__, line, func);
        return -1;
    }
    return 0;
}

void coordinate_process(void*)
{
    for (;;) {
        touchscreen_lock_logic_process();
        usleep(100000);
    }
}

// What one pass decided to tell the configured callbacks; they are called
// after the screen's mutex is released so that they may use this module.
struct ts_notice {
    int lock_change = -1;  // -1 none, 1 locked, 0 unlocked
    bool locked_touch = false;
    lock_unlock_notify_callback lock_unlock_notify = nullptr;
    touch_lock_notify_callback lock_touch_notify = nullptr;
};

void set_timed_lock(ts_lock_info_t& info, bool lock, ts_notice& notice)
{
    info.lock_status = lock ? 1 : 0;
    info.recent_status = 1;
    info.start_time = 0;
    info.lock_info.status = lock ? 0 : 1;
    setmodconfig(DEV_MOD_CFG_SET_LOCK, &info.lock_info, sizeof(dev_mod_cfg_t));
    notice.lock_change = lock ? 1 : 0;
}

// The timed logic for one screen whose record has just been read; called
// with its mutex held.
void lock_logic_step(ts_lock_info_t& info, time_t now, ts_notice& notice)
{
    const int32_t keydown = load_field(info.lock_info.keydown);
    const auto x = static_cast<uint32_t>(load_field(info.lock_info.xcord));
    const auto y = static_cast<uint32_t>(load_field(info.lock_info.ycord));
    const lock_area_t& a = info.lock_area;
    const bool in_area = keydown != 0 && static_cast<uint32_t>(a.xmin) <= x &&
                         x <= static_cast<uint32_t>(a.xmax) && static_cast<uint32_t>(a.ymin) <= y &&
                         y <= static_cast<uint32_t>(a.ymax);

    if (in_area) {
        if (info.recent_status == 1) {
            // A change just happened and the finger has not left the area.
        } else if (info.start_time == 0) {
            info.start_time = now;
        } else if (info.lock_status != 1) {
            if (now - info.start_time >= info.lock_interval)
                set_timed_lock(info, true, notice);
            return;
        } else {
            if (now - info.start_time >= info.unlock_interval)
                set_timed_lock(info, false, notice);
            else
                notice.locked_touch = true;
            return;
        }
    } else {
        info.start_time = 0;
        info.recent_status = 0;
    }
    if (info.lock_status == 1 && keydown != 0)
        notice.locked_touch = true;
}

constexpr int EXPLICIT_WRITE_FAILED = -2;

// -1 for a screen outside 0..2, EXPLICIT_WRITE_FAILED when the driver did not
// take the record, else 0 (after notifying).
int set_explicit_lock(int screen, bool lock)
{
    if (!valid_screen(screen))
        return -1;
    ts_lock_info_t& info = scr_lock_info[screen];
    lock_unlock_notify_callback notify;
    {
        std::lock_guard<std::mutex> guard(info.mux);
        info.lock_status = lock ? 1 : 0;
        info.lock_info.status = lock ? 0 : 1;
        if (setmodconfig(DEV_MOD_CFG_SET_LOCK_EXPLICIT, &info.lock_info, sizeof(dev_mod_cfg_t)) != 0)
            return EXPLICIT_WRITE_FAILED;
        notify = info.lock_unlock_notify;
    }
    if (notify != nullptr)
        notify(screen, lock ? 1 : 0);
    return 0;
}

bool is_touch_key(const tactord::input_event& ev)
{
    return ev.type == EV_KEY && (ev.code == BTN_LEFT || ev.code == BTN_TOUCH);
}

// Applies a touch event to the record and writes it with request 164; other
// events are ignored.
void mirror_event(ts_lock_info_t& info, const tactord::input_event& ev)
{
    if (is_touch_key(ev)) {
        store_field(info.lock_info.keydown, ev.value);
    } else if (ev.type == EV_ABS && ev.code == ABS_X) {
        store_field(info.lock_info.xcord, ev.value);
    } else if (ev.type == EV_ABS && ev.code == ABS_Y) {
        store_field(info.lock_info.ycord, ev.value);
    } else {
        return;
    }
    setmodconfig(DEV_MOD_CFG_SET_COORD, &info.lock_info, sizeof(dev_mod_cfg_t));
}

}  // namespace

void touchscreen_set_clock(ts_clock_fn clock)
{
    g_clock.store(clock != nullptr ? clock : system_clock_seconds, std::memory_order_relaxed);
}

void touchscreen_set_task_starter(ts_task_starter_fn starter)
{
    g_task_starter.store(starter != nullptr ? starter : VR_CreateTask, std::memory_order_relaxed);
}

int setmodconfig(unsigned long request, void* record, int len)
{
    // The device exchanges exactly one record; anything else is refused
    // before the device is touched.
    if (record == nullptr || len != static_cast<int>(sizeof(dev_mod_cfg_t)))
        return -1;
    return checked_request(request, static_cast<dev_mod_cfg_t*>(record), __func__, __LINE__);
}

int get_dev_mod_cfg_info(int screen)
{
    if (!valid_screen(screen))
        return -1;
    return checked_request(DEV_MOD_CFG_GET, &scr_lock_info[screen].lock_info, __func__, __LINE__);
}

int touchscreeninit()
{
    for (int s = 0; s < TS_SCREEN_COUNT; ++s) {
        ts_lock_info_t& info = scr_lock_info[s];
        std::lock_guard<std::mutex> guard(info.mux);
        info.lock_info = {s, 0, 0, 1, 0, 0};
        info.lock_area = {};
        info.lock_interval = 0;
        info.unlock_interval = 0;
        info.lock_status = 0;
        info.recent_status = 0;
        info.lock_enable = 0;
        info.lock_unlock_notify = nullptr;
        info.lock_touch_notify = nullptr;
        info.start_time = 0;
        info.st = {};
        info.et = {};
    }
    return 1;
}

int touchscreen_lock_config(const lock_config* cfg, lock_unlock_notify_callback lock_unlock_callback,
                            touch_lock_notify_callback lock_touch_callback)
{
    std::lock_guard<std::mutex> guard(g_config_lock);
    if (g_configured)
        return 0;
    if (cfg == nullptr || lock_unlock_callback == nullptr || lock_touch_callback == nullptr) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): input parameter error\n", DRV_POS);
        return -1;
    }
    for (ts_lock_info_t& info : scr_lock_info) {
        std::lock_guard<std::mutex> screen_guard(info.mux);
        info.lock_area = {cfg->Xmin, cfg->Xmax, cfg->Ymin, cfg->Ymax};
        info.lock_interval = cfg->lock_interval;
        info.unlock_interval = cfg->unlock_interval;
        info.lock_enable = 1;
        info.lock_unlock_notify = lock_unlock_callback;
        info.lock_touch_notify = lock_touch_callback;
    }
    const ts_task_starter_fn start = g_task_starter.load(std::memory_order_relaxed);
    if (start(nullptr, TS_TASK_NAME, coordinate_process, nullptr, TS_TASK_STACK, TS_TASK_PRIORITY) !=
        0) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): Create touch screen process thread error!\n", DRV_POS);
        return -1;
    }
    g_configured = true;
    return 0;
}

void touchscreen_set_coordinate(int screen, const tactord::input_event* ev)
{
    if (!valid_screen(screen) || ev == nullptr)
        return;
    // The volume lives in screen 0's record whatever the screen.
    const int volume = touchscreen_get_key_volume(screen);
    if (is_touch_key(*ev) && ev->value != 0) {
        if (volume >= 1)
            Sound_Play(TS_KEY_CLICK_SOUND, volume, 0, 0, screen, 0);
        else if (volume < 0)
            send_log(DRV_LOG_ERR, "%s:%d:%s(): get key volume failed.\n", DRV_POS);
    }
    mirror_event(scr_lock_info[screen], *ev);
}

void touchscreen_set_coordinate_with_no_play(int screen, const tactord::input_event* ev)
{
    if (!valid_screen(screen) || ev == nullptr)
        return;
    ts_lock_info_t& info = scr_lock_info[screen];
    std::lock_guard<std::mutex> guard(info.mux);
    mirror_event(info, *ev);
}

int touchscreen_get_key_volume(int screen)
{
    (void)screen;
    ts_lock_info_t& info = scr_lock_info[MAIN_SCREEN];
    std::lock_guard<std::mutex> guard(info.mux);
    if (get_dev_mod_cfg_info(MAIN_SCREEN) != 0) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): get screen %d _key_volume error.\n", DRV_POS, 0);
        return -1;
    }
    return info.lock_info.key_volume;
}

int touchscreen_get_lock_status(int screen)
{
    if (!valid_screen(screen))
        return -1;
    ts_lock_info_t& info = scr_lock_info[screen];
    std::lock_guard<std::mutex> guard(info.mux);
    if (get_dev_mod_cfg_info(screen) != 0) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): get screen %d _lock status error.\n", DRV_POS, screen);
        return -1;
    }
    return info.lock_info.status;
}

int touchscreen_lock(int screen)
{
    const int rc = set_explicit_lock(screen, true);
    if (rc != EXPLICIT_WRITE_FAILED)
        return rc;
    send_log(DRV_LOG_ERR, "%s:%d:%s(): set lock config to lock status error.\n", DRV_POS);
    return -1;
}

int touchscreen_unlock(int screen)
{
    const int rc = set_explicit_lock(screen, false);
    if (rc != EXPLICIT_WRITE_FAILED)
        return rc;
    send_log(DRV_LOG_ERR, "%s:%d:%s(): set lock config to unlock status error.\n", DRV_POS);
    return -1;
}

void touchscreen_lock_logic_process()
{
    for (int s = 0; s < TS_SCREEN_COUNT; ++s) {
        ts_lock_info_t& info = scr_lock_info[s];
        ts_notice notice;
        {
            std::unique_lock<std::mutex> guard(info.mux);
            if (get_dev_mod_cfg_info(s) != 0) {
                send_log(DRV_LOG_ERR, "%s:%d:%s(): get touch screen %d config failed.\n", DRV_POS, s);
                guard.unlock();
                usleep(10000);
                continue;
            }
            if (info.lock_enable == 0)
                continue;
            lock_logic_step(info, g_clock.load(std::memory_order_relaxed)(), notice);
            notice.lock_unlock_notify = info.lock_unlock_notify;
            notice.lock_touch_notify = info.lock_touch_notify;
        }
        if (notice.lock_change >= 0 && notice.lock_unlock_notify != nullptr)
            notice.lock_unlock_notify(s, notice.lock_change);
        if (notice.locked_touch && notice.lock_touch_notify != nullptr)
            notice.lock_touch_notify(s);
    }
}

void dump_dev_cfg()
{
    for (int s = 0; s < TS_SCREEN_COUNT; ++s) {
        ts_lock_info_t& info = scr_lock_info[s];
        std::lock_guard<std::mutex> guard(info.mux);
        if (get_dev_mod_cfg_info(s) != 0) {
            std::printf("get screen %d config error.\n", s);
            return;
        }
        const dev_mod_cfg_t& r = info.lock_info;
        std::printf("screen: %d keydown: %d  status: %d\n", s, load_field(info.lock_info.keydown),
                    r.status);
        std::printf("           xcord: %d  ycord: %d  key_volume: %d\n",
                    load_field(info.lock_info.xcord), load_field(info.lock_info.ycord),
                    r.key_volume);
    }
}
