#include "common/inputevent_handle.h"

#include <fcntl.h>
#include <linux/input-event-codes.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <mutex>

#include "arm/touchscreen_manager.h"
#include "common/OrvelClient.h"
#include "common/cursor_timer.h"
#include "common/inputdevice_manager.h"
#include "common/inputevent_handle_internal.h"
#include "common/keyboard_manager.h"
#include "common/log.h"
#include "common/root_path.h"
#include "common/screen_manager.h"
#include "common/screen_manager_internal.h"
#include "common/send_event.h"
#include "common/ts_cali.h"

int g_MouseSensitivityValue = 5;
const std::array<float, 10> g_MouseSensitivityValueMap = {0.4F, 0.5F, 0.6F, 0.8F, 1.0F,
                                                           1.3F, 1.6F, 2.0F, 2.5F, 3.0F};
int ts_num_x = 4095;
int PID_flag = 0;
std::array<TouchScreenInfo, 2> g_TouchScreeenStatus = {{{1, {}}, {1, {}}}};

std::array<DownSendInfo, DOWN_SEND_INFO_MAX> downSendInfoArray{};
std::atomic<int> downSendInfoDevCount{0};
evdev_event_observer process_evdev_observer = nullptr;

namespace {

constexpr int NOBODY = SCREEN_COUNT;  // no client has the focus or the cursor
constexpr uint16_t EV_VNC = 32;        // absolute pointer of a virtual desktop
constexpr int WAKE_UP_KEY = 199;       // double tap on a switched-off panel
constexpr int PANEL_MAX = 4095;        // 12-bit controller
constexpr int PANEL_MAX_10BIT = 1023;  // 10-bit controller
constexpr int RAW_REPORT_MAX = 10;  // raw events held before their EV_SYN

// Raw-report assembler of the touchscreens that need calibration; the events
// are held in place, not copied to the heap.
struct raw_report {
    std::array<tactord::input_event, RAW_REPORT_MAX> ev{};
    int x_raw = 0;  // last raw ABS_X and ABS_Y, kept across reports
    int y_raw = 0;
    int ev_num = 0;  // events held
    int x_num = -1;  // position of the report's ABS_X / ABS_Y, -1 = none
    int y_num = -1;
};
raw_report ts_cali;

// Last point of the virtual-desktop pointer.
int vnc_x = 0;
int vnc_y = 0;

bool is_x_code(uint16_t code)
{
    return code == ABS_X || code == ABS_MT_POSITION_X;
}

bool is_y_code(uint16_t code)
{
    return code == ABS_Y || code == ABS_MT_POSITION_Y;
}

bool is_touchscreen(const _InputDev* dev)
{
    return dev != nullptr && dev->type == INPUT_TYPE_TOUCHSCREEN;
}

bool same_text(const char* a, const char* b)
{
    return a != nullptr && std::strcmp(a, b) == 0;
}

// Sums and products of values from devices and clients: kept in the int
// range instead of overflowing.
int saturate(int64_t v)
{
    if (v > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (v < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

int add_sat(int a, int b)
{
    return saturate(static_cast<int64_t>(a) + b);
}

int clamp_to(int v, int lo, int hi)
{
    return v < lo ? lo : (v > hi ? hi : v);
}

// The seat's calibration record; seats below 0 (non-USB inputs) use seat 0.
ts_priv_data_s* seat_record(const _InputDev* dev)
{
    return ts_get_private_data(dev->seat < 0 ? 0 : dev->seat);
}

OutputDev* client_output(ScrInfo* scr, int client)
{
    return client >= 0 && client < SCREEN_COUNT ? scr->client[client].output : nullptr;
}

// The tracking record of a touchscreen; other devices have none.
DownSendInfo* touch_record(_InputDev* dev)
{
    return is_touchscreen(dev) ? GetDownSendInfo(dev) : nullptr;
}

// The touch lock answered 1: without a contact in progress the event goes
// down the touch-lock path (true, done); a contact begun before the lock
// goes on normally (false).
bool locked_touch_taken(_InputDev* dev, int t, ScrInfo* scr, tactord::input_event* ev)
{
    const DownSendInfo* info = touch_record(dev);
    if (info != nullptr && info->bDownSend != 0)
        return false;
    TouchScreenLockSendEventToOut(dev, t, scr, ev);
    return true;
}

void set_panel_range(_InputDev* dev, int max)
{
    for (tactord::input_absinfo& a : dev->abs) {
        a.minimum = 0;
        a.maximum = max;
    }
    ts_num_x = max;
}

// "/proc/atmel_product", opened at the first identification and then kept.
// The panel is identified again whenever a "touchscreen_sub" event has
// cleared PID_flag before a "touchscreen_main" one: each time reads the same
// descriptor from its start, so the daemon holds exactly one, never one per
// switch.
int atmel_product_fd = -1;

// Reads the board panel's controller id. The four bytes are read into a
// fixed buffer, so nothing is allocated here.
void identify_panel(_InputDev* dev)
{
    if (atmel_product_fd < 0) {
        root_path_buf path;
        atmel_product_fd = open(resolve_path("/proc/atmel_product", path), O_RDONLY | O_CLOEXEC);
    }
    const int fd = atmel_product_fd;
    if (fd < 0) {
        set_panel_range(dev, PANEL_MAX);
        return;
    }
    std::printf("open touchscreen PID success! ");
    char text[5] = {};
    unsigned id = 0;
    if (pread(fd, text, 4, 0) <= 0 || std::sscanf(text, "%x", &id) != 1)
        id = 0;
    switch (id) {
    case 0x2151:
    case 0x212c: set_panel_range(dev, PANEL_MAX); break;
    case 0x8a6e:
    case 0x214e: set_panel_range(dev, PANEL_MAX_10BIT); break;
    default:
        std::printf("get touchscreen PID error! ");
        return;
    }
    PID_flag = 1;
}

// The coordinate range of the touchscreen's next ABS event.
void fix_abs_range(_InputDev* dev)
{
    if (dev->abs[0].maximum == 0 || dev->abs[1].maximum == 0)
        PID_flag = 0;
    if (same_text(dev->path, "non_usb_path")) {
        set_panel_range(dev, PANEL_MAX);
    } else if (same_text(dev->name, "touchscreen_main")) {
        if (PID_flag == 0)
            identify_panel(dev);
    } else if (same_text(dev->name, "touchscreen_sub")) {
        set_panel_range(dev, PANEL_MAX);
        PID_flag = 0;
    }
}

// Relative motion times the sensitivity factor, in single precision and
// truncated toward zero (saturating for values no mouse sends).
int scale_motion(int value)
{
    const int level = g_MouseSensitivityValue;
    // The control socket keeps the level in 1..10; anything else moves 1:1.
    const float factor = level >= 1 && level <= static_cast<int>(g_MouseSensitivityValueMap.size())
                             ? g_MouseSensitivityValueMap[level - 1]
                             : 1.0F;
    const float v = static_cast<float>(value) * factor;
    if (v >= 2147483648.0F)
        return std::numeric_limits<int>::max();
    if (v <= -2147483648.0F)
        return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

// The neighbour of client c in direction accepts the cursor.
bool crossing_ok(ScrInfo* scr, int c, int n)
{
    return n >= 0 && n < SCREEN_COUNT && n != c && gs_clients[n].load() >= 1 && scr->client[n].output != nullptr;
}

// The pointer left client c's output along one axis: when the neighbour in
// that direction takes the cursor (n), along becomes its position on the
// neighbour and across is clamped to the neighbour's size.
bool cross_edge(ScrInfo* scr, int c, int direction, bool horizontal, int& along, int& across, int& n)
{
    n = get_next_client(scr, static_cast<unsigned>(c), direction);
    if (!crossing_ok(scr, c, n))
        return false;
    TLOG(LEVEL_INFO, "change cursor src=%d, des=%d\n", c, n);
    const OutputDev& from = *scr->client[c].output;
    const OutputDev& to = *scr->client[n].output;
    if (direction == (horizontal ? RIGHT_OF : BELOW))
        along = add_sat(along, -(horizontal ? from.width : from.height));
    else
        along = add_sat(along, horizontal ? to.width : to.height);
    across = clamp_to(across, 0, (horizontal ? to.height : to.width) - 1);
    return true;
}

void rewrite_abs(tactord::input_event* ev, bool x_axis, int value)
{
    ev->type = EV_ABS;
    ev->code = x_axis ? ABS_X : ABS_Y;
    ev->value = value;
}

// Raw-report assembler: forget every held event.
void drop_raw_report()
{
    ts_cali.ev_num = 0;
    ts_cali.x_num = ts_cali.y_num = -1;
}

void raw_report_overflow()
{
    drop_raw_report();
    TLOG(LEVEL_ERROR, "TS raw msg before SYN is too much\n");
}

// Puts a missing axis (ABS_X or ABS_Y) in before the held EV_SYN at ev_num.
// False when the report would overflow (it is then dropped).
bool insert_axis(uint16_t code, int& pos)
{
    if (pos >= 0)
        return true;
    raw_report& r = ts_cali;
    if (r.ev_num + 1 >= RAW_REPORT_MAX) {
        raw_report_overflow();
        return false;
    }
    r.ev[r.ev_num + 1] = r.ev[r.ev_num];
    r.ev[r.ev_num] = {r.ev[r.ev_num].tv_sec, r.ev[r.ev_num].tv_usec, EV_ABS, code, 0};
    pos = r.ev_num++;
    return true;
}

evdev_event_path choose_path(_InputDev* dev)
{
    if (dev == nullptr)
        return evdev_event_path::router;
    const ts_priv_data_s* ts = seat_record(dev);
    if (ts != nullptr && ts->mode.load(std::memory_order_relaxed) == 1)
        return evdev_event_path::cali_capture;
    return dev->need_cali == 1 ? evdev_event_path::raw_touch : evdev_event_path::router;
}

// A touch settled the cursor's place while the IPC screen is an extended
// screen: the cursor no longer counts as having crossed into it.
void clear_ipc_extern_cursor_flag(const ScrInfo* scr)
{
    if ((scr->mode & MODE_IPC_EXTERN) != 0)
        gs_orvel_cursor_flag = 0;
}

// A touch takes the cursor from one side of the IPC window to the other; the
// side that gets it is handed the touch's x (a copy of ev) through the
// tracker. False when the move is refused.
bool touch_takes_cursor(_InputDev* dev, ScrInfo* scr, int from, int to, const tactord::input_event& ev)
{
    if (screen_change_cursor(scr, from, to) == 0)
        return false;
    tactord::input_event moved = ev;
    moved.code = ABS_X;
    moved.value = scr->x;
    sync_down_up_to_one_index_send(dev, to, &moved);
    return true;
}

}  // namespace

void ProcessEvdevEvent(_InputDev* dev, tactord::input_event* ev)
{
    if (ev == nullptr)
        return;
    // A switched-off touchscreen changes nothing but the double-tap wake: its
    // events are swallowed here, before they can move the cursor, take the
    // focus, click, reach the touch-lock controller or feed a calibration.
    // (Further down, the close filter would only come after all of that.)
    if (IsTouchScreenCloseFilter(dev, ev) == 1) {
        TLOG(LEVEL_DEBUG, "IsTouchScreenCloseFilter [%d] 0x%x %d : %d \n", -1, ev->type, ev->code, ev->value);
        return;
    }
    const evdev_event_path path = choose_path(dev);
    if (process_evdev_observer != nullptr)
        process_evdev_observer(dev, ev, path);
    switch (path) {
    case evdev_event_path::cali_capture:
        ts_data_parse_cali_mode(dev, ev);
        ProcessEvdevEvent_ARM(dev, ev);
        break;
    case evdev_event_path::raw_touch: ts_data_parse_func_mode(dev, ev); break;
    case evdev_event_path::router: ProcessEvdevEvent_ARM(dev, ev); break;
    }
}

void ProcessEvdevEvent_ARM(_InputDev* dev, tactord::input_event* ev)
{
    if (ev == nullptr)
        return;
    const bool double_player = (get_current_multimode() & MODE_DOUBLE_PLAYER) != 0;
    ScrInfo* scr = dev != nullptr && double_player ? get_screen_info(dev->config_disp) : &screen_info;
    if (scr == nullptr) {
        // A configured screen outside the per-player table feeds nobody.
        TLOG(LEVEL_ERROR, "output %d not exist\n", dev->config_disp);
        return;
    }
    int t = -1;
    switch (ev->type) {
    case EV_SYN:
        t = scr->syn_index;
        if (is_touchscreen(dev) && touch_screen_lock(t) == 1) {
            TLOG(LEVEL_ERROR, "touchscreen touch_screen_lock is 1.\n");
            if (locked_touch_taken(dev, t, scr, ev))
                return;
        }
        break;
    case EV_KEY:
        if (handle_key_event(scr, ev) == -1)
            return;
        t = get_focus_client(scr);
        if (ev->type == EV_KEY && (ev->code == BTN_MOUSE || ev->code == BTN_TOUCH))
            touch_voice_play(ev, t);
        // Local screens see a mouse button; only the IPC screen sees touches.
        if (t != IPC_SCREEN && ev->type == EV_KEY && ev->code == BTN_TOUCH)
            ev->code = BTN_MOUSE;
        if (is_touchscreen(dev) && touch_screen_lock_KEY(ev, t) == 1) {
            TLOG(LEVEL_ERROR, "touchscreen touch_screen_lock_KEY is 1.\n");
            if (locked_touch_taken(dev, t, scr, ev))
                return;
        }
        break;
    case EV_REL:
        if (ev->code == REL_X || ev->code == REL_Y) {
            ev->value = scale_motion(ev->value);
            if (handle_rel_event(scr, ev) == -1)
                return;
            t = get_cursor_client(scr);
            if (t == IPC_SCREEN) {
                // The remote-screen client takes positions as EV_REL.
                ev->type = EV_REL;
                if (is_x_code(ev->code))
                    ev->code = REL_X;
                else if (is_y_code(ev->code))
                    ev->code = REL_Y;
            }
        } else if (ev->code == REL_WHEEL) {
            t = get_focus_client(scr);
        }
        clear_timer_flag(t);
        break;
    case EV_ABS: {
        if (dev == nullptr) {
            // Absolute events need their touchscreen's range and role.
            TLOG(LEVEL_ERROR, "abs event without a device, dropped\n");
            return;
        }
        tactord::input_event raw = *ev;
        fix_abs_range(dev);
        if (handle_abs_event(dev, ev) != 0)
            return;
        t = get_cursor_client(scr);
        if (touch_screen_lock_ABS(&raw, t) == 1) {
            if (locked_touch_taken(dev, t, scr, ev))
                return;
            // A contact in progress keeps only its slot and tracking ids.
            if (ev->code != ABS_MT_SLOT && ev->code != ABS_MT_TRACKING_ID)
                return;
        }
        break;
    }
    case EV_LED:
        t = scr->syn_index;
        break;
    case EV_VNC:
        t = handle_vnc_event(ev);
        if (double_player)
            scr = &double_screen[t];
        break;
    default:
        return;
    }
    if (t >= 0 && t < SCREEN_COUNT) {
        scr->syn_index = t;
        sync_down_up_to_one_index_send(dev, t, ev);
    }
}

int handle_key_event(ScrInfo* scr, tactord::input_event* ev)
{
    switch (ev->code) {
    case BTN_LEFT:
    case BTN_RIGHT:
    case BTN_TOUCH:
        if (ev->value == 1) {
            // The keyboard focus follows the click.
            const int cursor = get_cursor_client(scr);
            const int focus = get_focus_client(scr);
            if (cursor != focus)
                screen_change_focus(scr, focus, cursor);
        }
        return 0;
    case KEY_CAPSLOCK:
    case KEY_NUMLOCK:
    case KEY_SCROLLLOCK:
        TLOG(LEVEL_DEBUG, "++++++ key lock press++++++\n");
        if (ev->value != 2) {
            handle_key_lock(scr, ev);
            return 0;
        }
        TLOG(LEVEL_DEBUG, "key long press, not handle\n");
        return -1;
    default:
        return 0;
    }
}

int handle_rel_event(ScrInfo* scr, tactord::input_event* ev)
{
    int x = scr->x;
    int y = scr->y;
    if ((scr->mode & MODE_IPC_WINDOW) != 0 && ipc_window_filter(scr, ev) == 1)
        return 0;
    const bool x_axis = ev->code == REL_X;
    int direction = 0;
    if (x_axis) {
        x = add_sat(x, ev->value);
        direction = ev->value < 0 ? LEFT_OF : RIGHT_OF;
    } else {
        y = add_sat(y, ev->value);
        direction = ev->value < 0 ? ABOVE : BELOW;
    }
    const int c = get_cursor_client(scr);
    const OutputDev* o = client_output(scr, c);
    if (o == nullptr) {
        TLOG(LEVEL_ERROR, "no output in client %d\n", c);
        return -1;
    }
    const int mode = scr->mode;
    if ((mode & MODE_CLONE) != 0 && (mode & MODE_IPC_EXTERN) == 0) {
        x = clamp_to(x, 0, scr->width - 1);
        y = clamp_to(y, 0, scr->height - 1);
    } else if ((mode & MODE_DOUBLE_PLAYER) != 0 && (mode & MODE_IPC_EXTERN) == 0) {
        x = clamp_to(x, 0, o->width - 1);
        y = clamp_to(y, 0, o->height - 1);
    } else if ((mode & (MODE_EXTERN | MODE_IPC_EXTERN)) != 0) {
        int n = -1;
        bool crossed = false;
        if (x < 0 || x > o->width - 1)
            crossed = cross_edge(scr, c, direction, true, x, y, n);
        else if (y < 0 || y > o->height - 1)
            crossed = cross_edge(scr, c, direction, false, y, x, n);
        if (!crossed) {
            x = clamp_to(x, 0, o->width - 1);
            y = clamp_to(y, 0, o->height - 1);
        } else {
            if (screen_change_cursor(scr, c, n) == 0)
                return -1;
            gs_orvel_cursor_flag = n == IPC_SCREEN && (mode & MODE_IPC_WINDOW) != 0 ? 1 : 0;
        }
    }
    rewrite_abs(ev, x_axis, x_axis ? x : y);
    scr->x = x;
    scr->y = y;
    return 0;
}

int handle_abs_event(_InputDev* dev, tactord::input_event* ev)
{
    if (dev == nullptr)
        return -1;
    ScrInfo* scr = get_screen_info(dev->config_disp);
    if (scr == nullptr)
        return -1;
    int c = -1;
    if (same_text(dev->name, "touchscreen_main")) {
        c = MAIN_SCREEN;
    } else if (same_text(dev->name, "touchscreen_sub")) {
        const bool shared_seat = (scr->mode & (MODE_EXTERN | MODE_DOUBLE_PLAYER)) != 0 &&
                                 (dev->seat == 1 || dev->seat == 2);
        c = (scr->mode & MODE_CLONE) != 0 || shared_seat ? MAIN_SCREEN : SUB_SCREEN;
    } else {
        return -1;
    }
    const OutputDev* o = scr->client[c].output;
    if (o == nullptr) {
        TLOG(LEVEL_ERROR, "output %d not exist\n", c);
        return -1;
    }
    const bool x_axis = is_x_code(ev->code);
    if (!x_axis && !is_y_code(ev->code))
        return 0;
    const tactord::input_absinfo& range = dev->abs[x_axis ? 0 : 1];
    if (range.maximum == range.minimum) {
        TLOG(LEVEL_ERROR, "touchscreen coordinate is 0.\n");
        return -1;
    }
    const ts_priv_data_s* ts = seat_record(dev);
    const bool converted = dev->need_cali == 1 && ts != nullptr && ts->mode.load(std::memory_order_relaxed) == 0;
    if (!converted) {
        const int span = dev->need_cali == 1 ? (x_axis ? CALI_SPAN_X : CALI_SPAN_Y) : (x_axis ? o->width : o->height) - 1;
        // The minimum is not subtracted: panel ranges start at 0.
        const int64_t extent = static_cast<int64_t>(range.maximum) - range.minimum;
        ev->value = saturate(static_cast<int64_t>(ev->value) * span / extent);
    }
    (x_axis ? scr->x : scr->y) = ev->value;

    if ((scr->mode & MODE_IPC_WINDOW) != 0 && scr->ipc.index == c && handle_ipc_window_touch_event(dev, ev) == 1)
        return 0;
    if ((scr->mode & (MODE_EXTERN | MODE_IPC_EXTERN)) != 0) {
        // A touch takes the cursor to its own screen.
        const int cursor = get_cursor_client(scr);
        if (cursor != c && screen_change_cursor(scr, cursor, c) == 1 && cursor == IPC_SCREEN)
            gs_orvel_cursor_flag = 0;
    }
    return 0;
}

int handle_vnc_event(tactord::input_event* ev)
{
    const bool x_axis = is_x_code(ev->code);
    if (x_axis)
        vnc_x = ev->value;
    else if (is_y_code(ev->code))
        vnc_y = ev->value;
    const OutputDev* first = get_output_info(MAIN_SCREEN);
    const auto inside = [](int v, int origin, int size) {
        return static_cast<int64_t>(origin) <= v && v <= static_cast<int64_t>(origin) + size - 1;
    };
    const int target =
        inside(vnc_x, first->x, first->width) && inside(vnc_y, first->y, first->height) ? MAIN_SCREEN : SUB_SCREEN;
    ScrInfo* scr = get_screen_info(target);
    if ((scr->mode & MODE_EXTERN) != 0) {
        const int cursor = get_cursor_client(scr);
        if (cursor != target)
            screen_change_cursor(scr, cursor, target);
    }
    const OutputDev* out = get_output_info(static_cast<unsigned>(target));
    if (x_axis) {
        ev->value = add_sat(ev->value, -out->x);
        scr->x = ev->value;
    } else if (is_y_code(ev->code)) {
        ev->value = add_sat(ev->value, -out->y);
        scr->y = ev->value;
    }
    ev->type = EV_ABS;
    return target;
}

void TouchScreenLockSendEventToOut(_InputDev* dev, int client, ScrInfo* scr, tactord::input_event* ev)
{
    if (IsTouchScreenCloseFilter(dev, ev) == 1) {
        TLOG(LEVEL_DEBUG, "IsTouchScreenCloseFilter [%d] 0x%x %d : %d \n", client, ev->type, ev->code, ev->value);
        return;
    }
    if (client >= 0 && client < SCREEN_COUNT)
        scr->syn_index = client;
    ev->type = static_cast<uint16_t>(ev->type + EV_PRIV_LOCKED_TOUCH_BASE);
    // Other clients' locked touches go to the screen hosting the IPC window
    // (its index was checked against the table when the window opened).
    const int fd = client == MAIN_SCREEN || client == SUB_SCREEN ? gs_clients[client].load()
                                                                  : gs_clients[scr->ipc.index].load();
    send_event_by_fd(fd, ev);
}

void OnDevDelete(_InputDev* dev)
{
    if (dev == nullptr || dev->type != INPUT_TYPE_TOUCHSCREEN)
        return;
    const int n = downSendInfoDevCount.load(std::memory_order_acquire);
    for (int i = 0; i < n && i < DOWN_SEND_INFO_MAX; ++i) {
        // The record stops naming the device, which frees it: a later device
        // at the same address gets a fresh record instead of the old contact.
        // Only the name is written here (by the hot-plug thread); the event
        // thread resets a record when it takes it, and a record it has
        // already handed to another device keeps that one.
        _InputDev* expected = dev;
        if (downSendInfoArray[i].dev.compare_exchange_strong(expected, nullptr))
            return;
    }
}

DownSendInfo* GetDownSendInfo(_InputDev* dev)
{
    const int n = downSendInfoDevCount.load(std::memory_order_relaxed);
    for (int i = 0; i < n && i < DOWN_SEND_INFO_MAX; ++i) {
        DownSendInfo& info = downSendInfoArray[i];
        if (info.dev.load(std::memory_order_relaxed) == dev) {
            info.bUsed.store(1, std::memory_order_relaxed);
            return &info;
        }
    }
    int pos = -1;
    if (n < DOWN_SEND_INFO_MAX) {
        pos = n;
        downSendInfoArray[pos].dev.store(dev, std::memory_order_relaxed);
        downSendInfoDevCount.store(n + 1, std::memory_order_release);
    } else {
        // Free: not used since its last contact, or its device went away.
        for (int i = 0; i < DOWN_SEND_INFO_MAX && pos < 0; ++i) {
            const DownSendInfo& info = downSendInfoArray[i];
            if (info.bUsed.load(std::memory_order_relaxed) == 0 || info.dev.load() == nullptr)
                pos = i;
        }
        if (pos < 0) {
            TLOG(LEVEL_ERROR, "nCount >= 5");
            return nullptr;
        }
        downSendInfoArray[pos].dev.store(dev, std::memory_order_relaxed);
    }
    TLOG(LEVEL_DEBUG, "FindDownSendInfo  pos = %d\n", pos);
    DownSendInfo& info = downSendInfoArray[pos];
    ResetDownSendInfo(&info);
    info.bUsed.store(1, std::memory_order_relaxed);
    return &info;
}

void ResetDownSendInfo(DownSendInfo* info)
{
    if (info == nullptr) {
        TLOG(LEVEL_ERROR, "pInfo == NULL");
        return;
    }
    info->index = info->ndownslotid = info->ndowntrackingid = DOWN_SEND_NONE;
    info->ncurrentslotid = info->ncurrenttrackingid = DOWN_SEND_NONE;
    info->bDownSend = info->bUpSend = info->bsync = 0;
    info->x = info->y = info->nCount = 0;
    info->bUsed.store(0, std::memory_order_relaxed);
    info->bCanSend = -1;
}

int ScreenMutexSend(DownSendInfo*, int client, tactord::input_event* ev)
{
    return send_event(client, ev);
}

int sync_down_up_to_one_index_send(_InputDev* dev, int t, tactord::input_event* ev)
{
    if (IsTouchScreenCloseFilter(dev, ev) == 1) {
        TLOG(LEVEL_DEBUG, "IsTouchScreenCloseFilter [%d] 0x%x %d : %d \n", t, ev->type, ev->code, ev->value);
        return 0;
    }
    DownSendInfo* info = touch_record(dev);
    if (info == nullptr) {
        send_event(t, ev);
        return 0;
    }
    switch (ev->type) {
    case EV_KEY:
        if (ev->value != 0) {
            info->index = t;
            info->bDownSend = 1;
            info->bUpSend = 0;
        } else {
            info->bUpSend = 1;
        }
        info->bsync = 0;
        break;
    case EV_SYN:
        info->bsync = 1;
        break;
    case EV_ABS:
        if (ev->code == ABS_MT_SLOT) {
            info->ncurrentslotid = ev->value;
            TLOG(LEVEL_DEBUG, "ncurrentslotid ==  %d", info->ncurrentslotid);
            if (info->ndownslotid == DOWN_SEND_NONE) {
                info->ndownslotid = ev->value;
                TLOG(LEVEL_DEBUG, "ndownslotid ==  %d", info->ndownslotid);
            }
        } else if (ev->code == ABS_MT_TRACKING_ID) {
            info->ncurrenttrackingid = ev->value;
            TLOG(LEVEL_DEBUG, "ncurrenttrackingid ==  %d", info->ncurrenttrackingid);
            if (info->ndowntrackingid == DOWN_SEND_NONE) {
                info->ndowntrackingid = ev->value;
                info->ndownslotid = info->ncurrentslotid = 0;
                TLOG(LEVEL_DEBUG, "set ndownslotid  == %d ndowntrackingid==%d", info->ndownslotid,
                     info->ndowntrackingid);
            }
        }
        if (info->bDownSend == 0 || info->bsync == 0) {
            if (is_x_code(ev->code))
                info->x = ev->value;
            else if (is_y_code(ev->code))
                info->y = ev->value;
            info->index = t;
        }
        break;
    default:
        break;
    }

    if (info->bUpSend != 0 || info->bsync != 0) {
        // The first report is complete (or the contact ends): out with it, to
        // the client where the contact went down.
        for (int i = 0; i < info->nCount; ++i)
            ScreenMutexSend(info, info->index, &info->m_eventBuf[i]);
        info->nCount = 0;
        bool drop = false;
        if (ev->type == EV_ABS && info->ncurrentslotid > 1) {
            TLOG(LEVEL_DEBUG, "pInfo->ncurrentslotid > 2 drop data");
            drop = true;
        } else if (info->index == IPC_SCREEN && ev->type == EV_ABS && info->ncurrentslotid != DOWN_SEND_NONE &&
                   info->ndownslotid != DOWN_SEND_NONE && info->ncurrentslotid != info->ndownslotid) {
            TLOG(LEVEL_DEBUG, "IPC_SCREEN only send One slot event, drop event slotID=%d", info->ncurrentslotid);
            drop = true;
        }
        if (!drop) {
            if (t != info->index && info->index == IPC_SCREEN && ev->type == EV_ABS) {
                // The IPC position stays where the contact went down.
                if (is_x_code(ev->code)) {
                    TLOG(LEVEL_DEBUG, "change x %d ===> %d", ev->value, info->x);
                    ev->value = info->x;
                } else if (is_y_code(ev->code)) {
                    TLOG(LEVEL_DEBUG, "change y %d ===> %d", ev->value, info->y);
                    ev->value = info->y;
                }
            }
            ScreenMutexSend(info, info->index, ev);
        }
    } else if (info->nCount < DOWN_SEND_EVENT_BUF && info->ncurrentslotid <= 1) {
        info->m_eventBuf[info->nCount++] = *ev;
    } else {
        TLOG(LEVEL_DEBUG, "pInfo->nCount == %d", info->nCount);
    }

    if (info->bUpSend != 0 && info->bsync != 0)
        ResetDownSendInfo(info);
    return 0;
}

int IsTouchScreenCloseFilter(_InputDev* dev, tactord::input_event* ev)
{
    if (!is_touchscreen(dev))
        return 0;
    TouchScreenInfo& sw = g_TouchScreeenStatus[dev->usb != 0 ? TOUCHSCREEN_SUB : TOUCHSCREEN_MAIN];
    // Any non-zero switch value counts as on.
    if (sw.nOpen != 0)
        return 0;
    if (ev->type == EV_KEY && ev->value == 0) {
        TLOG(LEVEL_DEBUG, "current stime = %d, utime = %d last stime = %d, utime = %d \n", ev->tv_sec, ev->tv_usec,
             static_cast<int>(sw.time.tv_sec), static_cast<int>(sw.time.tv_usec));
        const int64_t ds = static_cast<int64_t>(ev->tv_sec) - sw.time.tv_sec;
        const int64_t du = static_cast<int64_t>(ev->tv_usec) - sw.time.tv_usec;
        if (ds <= 1 && du <= 800999 && ds * 1000 + du / 1000 <= 800) {
            tactord::input_event key{ev->tv_sec, ev->tv_usec, EV_KEY, WAKE_UP_KEY, 1};
            send_event(MAIN_SCREEN, &key);
            key.tv_sec = saturate(static_cast<int64_t>(key.tv_sec) + 1);
            key.value = 0;
            send_event(MAIN_SCREEN, &key);
            sw.time = {};
        } else {
            sw.time.tv_sec = ev->tv_sec;
            sw.time.tv_usec = ev->tv_usec;
        }
    }
    return 1;
}

int ipc_window_filter(ScrInfo* scr, tactord::input_event* ev)
{
    const bool x_axis = ev->code == REL_X;
    const int cx = x_axis ? add_sat(scr->x, ev->value) : scr->x;
    const int cy = x_axis ? scr->y : add_sat(scr->y, ev->value);
    if (ipcIsExist() == 0 || ((scr->mode & MODE_IPC_EXTERN) != 0 && gs_orvel_cursor_flag == 1))
        return 0;
    const int c = get_cursor_client(scr);
    if (client_output(scr, c) == nullptr) {
        TLOG(LEVEL_ERROR, "no output in client %d\n", c);
        return -1;
    }
    const int host = scr->ipc.index;
    const RECT_BOX& win = scr->ipc.win;
    if (c == IPC_SCREEN) {
        int x = cx;
        int y = cy;
        int value = 0;
        if (is_in_ipc_window(scr, cx, cy) == 1) {
            value = x_axis ? add_sat(cx, -win.x1) : add_sat(cy, -win.y1);
        } else {
            // Out of the window: back to the host screen, inside its output.
            if (screen_change_cursor(scr, IPC_SCREEN, host) == 0)
                return -1;
            const OutputDev* o = get_output_info(static_cast<unsigned>(host));
            x = clamp_to(cx, 0, o->width - 1);
            y = clamp_to(cy, 0, o->height - 1);
            value = x_axis ? x : y;
        }
        rewrite_abs(ev, x_axis, value);
        scr->x = x;
        scr->y = y;
        return 1;
    }
    if (c == host && is_in_ipc_window(scr, cx, cy) == 1) {
        if (screen_change_cursor(scr, c, IPC_SCREEN) == 0)
            return -1;
        scr->x = cx;
        scr->y = cy;
        rewrite_abs(ev, x_axis, x_axis ? add_sat(cx, -win.x1) : add_sat(cy, -win.y1));
        return 1;
    }
    return 0;
}

int handle_ipc_window_touch_event(_InputDev* dev, tactord::input_event* ev)
{
    if (ipcIsExist() == 0)
        return 0;
    DownSendInfo* info = touch_record(dev);
    ScrInfo* scr = dev != nullptr ? get_screen_info(dev->config_disp) : nullptr;
    if (info == nullptr || scr == nullptr) {
        TLOG(LEVEL_ERROR, "NULL == pInfo");
        return 0;
    }
    const int host = scr->ipc.index;
    if (info->bUpSend == 0 && info->bsync == 0) {
        // The first report of a contact decides which side it belongs to.
        const int cursor = get_cursor_client(scr);
        if (cursor == IPC_SCREEN) {
            if (touch_screen_lock_ABS(ev, host) == 0) {
                if (is_x_code(ev->code))
                    scr->x = ev->value;
                else if (is_y_code(ev->code))
                    scr->y = ev->value;
                if (is_in_ipc_window(scr, scr->x, scr->y) == 0) {
                    if (!touch_takes_cursor(dev, scr, IPC_SCREEN, host, *ev))
                        return -1;
                    clear_ipc_extern_cursor_flag(scr);
                    return 0;
                }
            } else {
                screen_change_cursor(scr, IPC_SCREEN, host);
                clear_ipc_extern_cursor_flag(scr);
                return 0;
            }
        } else {
            if (is_in_ipc_window(scr, scr->x, scr->y) == 0 || touch_screen_lock_ABS(ev, host) != 0)
                return 0;
            if (!touch_takes_cursor(dev, scr, cursor, IPC_SCREEN, *ev))
                return -1;
        }
    } else if (info->index != IPC_SCREEN) {
        return 0;
    }
    // Window-relative, inside the window.
    const RECT_BOX& win = scr->ipc.win;
    if (is_x_code(ev->code))
        ev->value = clamp_to(add_sat(ev->value, -win.x1), 0, saturate(static_cast<int64_t>(win.x2) - win.x1));
    else if (is_y_code(ev->code))
        ev->value = clamp_to(add_sat(ev->value, -win.y1), 0, saturate(static_cast<int64_t>(win.y2) - win.y1));
    clear_ipc_extern_cursor_flag(scr);
    return 1;
}

void ts_data_parse_func_mode(_InputDev* dev, tactord::input_event* ev)
{
    ts_priv_data_s* ts = dev != nullptr ? seat_record(dev) : nullptr;
    if (ev == nullptr || ts == nullptr) {
        TLOG(LEVEL_ERROR, "invalid param.\n");
        return;
    }
    raw_report& r = ts_cali;
    if (r.ev_num >= RAW_REPORT_MAX)
        raw_report_overflow();
    r.ev[r.ev_num] = *ev;
    if (ev->type == EV_ABS && ev->code == ABS_X) {
        r.x_raw = ev->value;
        r.x_num = r.ev_num;
    } else if (ev->type == EV_ABS && ev->code == ABS_Y) {
        r.y_raw = ev->value;
        r.y_num = r.ev_num;
    }
    if (ev->type != EV_SYN) {
        ++r.ev_num;
        return;
    }
    if (r.x_raw <= 0 || r.y_raw <= 0) {
        // The SYN is not kept; the report's other events stay held.
        TLOG(LEVEL_ERROR, "Get ts x_raw or y_raw error\n");
        return;
    }
    int x = 0;
    int y = 0;
    {
        std::lock_guard<std::mutex> guard(ts->cali_lock);
        coordinate_convert(ts->ts_id, r.x_raw, r.y_raw, ts->cali_param.data(), &x, &y);
    }
    TLOG(LEVEL_DEBUG, "x_raw %d  x_covert %d      y_raw %d  y_covert %d\n", r.x_raw, x, r.y_raw, y);
    x = clamp_to(x, 0, PANEL_MAX);
    y = clamp_to(y, 0, PANEL_MAX);
    if (!insert_axis(ABS_X, r.x_num) || !insert_axis(ABS_Y, r.y_num))
        return;
    r.ev[r.x_num].value = x;
    r.ev[r.y_num].value = y;
    const int count = r.ev_num + 1;  // the held events and the SYN
    drop_raw_report();
    for (int i = 0; i < count; ++i)
        ProcessEvdevEvent_ARM(dev, &r.ev[i]);
}

void ts_data_parse_cali_mode(_InputDev* dev, tactord::input_event* ev)
{
    ts_priv_data_s* ts = dev != nullptr ? seat_record(dev) : nullptr;
    if (ev == nullptr || ts == nullptr) {
        TLOG(LEVEL_ERROR, "Error, invalid param.\n");
        return;
    }
    calibrate_data_s& cali = ts->cali_data;
    const int point = cali.cur_id.load(std::memory_order_relaxed);
    if (point < 1 || point > CALI_POINT_NUM || ev->type != EV_ABS || (ev->code != ABS_X && ev->code != ABS_Y))
        return;
    {
        std::lock_guard<std::mutex> guard(cali.cali_lock);
        (ev->code == ABS_X ? cali.points.x : cali.points.y)[point - 1] = ev->value;
    }
    if (point == CALI_POINT_NUM)
        cali.flag.store(1);
}

void ProcessSwitchTouchScreen(int index, int open)
{
    // Taken as unsigned: a negative index is out of the table too.
    if (static_cast<unsigned>(index) >= g_TouchScreeenStatus.size()) {
        TLOG(LEVEL_ERROR, "nIndex = %d error .\n", index);
        return;
    }
    TLOG(LEVEL_WARN, "ProcessSwitchTouchScreen Index = %d nOpen= %d .\n", index, open);
    g_TouchScreeenStatus[index].nOpen = open;
    g_TouchScreeenStatus[index].time = {};
}

int get_focus_client(ScrInfo* scr)
{
    for (int i = 0; scr != nullptr && i < SCREEN_COUNT; ++i) {
        if (scr->client[i].focus == 1)
            return i;
    }
    return NOBODY;
}

int GetFocusScreen()
{
    return get_focus_client(&screen_info);
}

int coordinate_convert(int seat, int x, int y, const int* param, int* out_x, int* out_y)
{
    if (param == nullptr || out_x == nullptr || out_y == nullptr)
        return -1;
    const int* p = param;
    if (p[6] == 0) {
        if (seat >= 0 && seat < TS_SEAT_MAX && cal_param_dat[seat][6] != 0) {
            p = cal_param_dat[seat].data();
        } else {
            p = DefaultCaliParam.data();
            TLOG(LEVEL_ERROR, "error cali param, please calibrate again! \n");
        }
    }
    // Parameters set by a client may be anything. Each term is at most 2^62
    // in size; a sum beyond the 64-bit range saturates (its sign is then
    // that of the true sum, whose quotient lies outside the int range anyway)
    // and the quotient saturates to the int range: an overflowing transform
    // pins to the panel's edge when the caller clamps, instead of wrapping.
    const auto apply = [&](int k) {
        int64_t sum = p[k];
        for (int j = 1; j <= 2; ++j) {
            const int64_t term = static_cast<int64_t>(p[k + j]) * (j == 1 ? x : y);
            if (__builtin_add_overflow(sum, term, &sum))
                sum = term < 0 ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
        }
        const int64_t scale = p[6];
        if (scale == -1)
            return sum == std::numeric_limits<int64_t>::min() ? std::numeric_limits<int>::max() : saturate(-sum);
        return saturate(sum / scale);
    };
    *out_x = apply(0);
    *out_y = apply(3);
    return 0;
}

void pipeline_reset()
{
    for (DownSendInfo& info : downSendInfoArray) {
        ResetDownSendInfo(&info);
        info.dev.store(nullptr);
    }
    downSendInfoDevCount.store(0);
    drop_raw_report();
    ts_cali.x_raw = ts_cali.y_raw = 0;
    for (TouchScreenInfo& sw : g_TouchScreeenStatus)
        sw = {1, {}};
    vnc_x = vnc_y = 0;
    if (atmel_product_fd >= 0)
        close(atmel_product_fd);
    atmel_product_fd = -1;
    PID_flag = 0;
    ts_num_x = PANEL_MAX;
    g_MouseSensitivityValue = 5;
}
