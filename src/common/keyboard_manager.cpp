#include "common/keyboard_manager.h"

#include <linux/input.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>

#include "common/evdev_msg.h"
#include "common/inputdevice_manager.h"
#include "common/inputdevice_manager_internal.h"
#include "common/log.h"
#include "common/screen_manager.h"
#include "common/screen_manager_internal.h"
#include "common/send_event.h"

namespace {

constexpr std::array<LockKeyStat, 3> LOCK_KEYS = {{
    {KEY_CAPSLOCK, LED_CAPSL, 0, 0},
    {KEY_NUMLOCK, LED_NUML, 0, 0},
    {KEY_SCROLLLOCK, LED_SCROLLL, 0, 0},
}};

tactord::input_event now_event(uint16_t type, uint16_t code, int32_t value)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    return {static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_usec), type, code, value};
}

// A keyboard's disp is brought up to date with the mode before it is
// compared: the LED writers run on the main thread, as the mode changes do,
// so a keyboard plugged while the mode changed is never left on the old
// screen.
bool is_keyboard_of(_InputDev* dev, int screen)
{
    if (dev == nullptr || dev->type != INPUT_TYPE_KEYBOARD)
        return false;
    dev->disp = input_dev_screen(dev);
    return dev->disp == screen;
}

// Every keyboard of the screen in the seat chains: first the devices chained
// behind an entry, then the entry itself.
void write_seat_keyboards(int screen, tactord::input_event* ev)
{
    for (const auto& slot : input_info) {
        _InputDev* head = slot.load();
        if (head == nullptr)
            continue;
        for (_InputDev* d = head->next.load(); d != nullptr; d = d->next.load()) {
            if (is_keyboard_of(d, screen))
                EvdevWrite(d, ev);
        }
        if (is_keyboard_of(head, screen))
            EvdevWrite(head, ev);
    }
}

}  // namespace

int input_dev_screen(const _InputDev* dev)
{
    // Outside double-player mode every device feeds screen_info, whose index
    // is 0; in it, the router takes double_screen[config_disp].
    if (dev == nullptr || (get_current_multimode() & MODE_DOUBLE_PLAYER) == 0)
        return MAIN_SCREEN;
    return dev->config_disp;
}

int set_keyborad_lock_state(int fd, int led, int value)
{
    // The device takes the kernel's own record layout.
    ::input_event ev{};
    timeval now{};
    gettimeofday(&now, nullptr);
    ev.input_event_sec = now.tv_sec;
    ev.input_event_usec = now.tv_usec;
    ev.type = EV_LED;
    ev.code = static_cast<uint16_t>(led);
    ev.value = value;
    return static_cast<int>(write(fd, &ev, sizeof ev));
}

int input_init()
{
    screen_info.lockKey = LOCK_KEYS;
    double_screen[0].lockKey = LOCK_KEYS;
    double_screen[1].lockKey = LOCK_KEYS;
    return 0;
}

int handle_key_lock(ScrInfo* scr, tactord::input_event* ev)
{
    if (scr == nullptr || ev == nullptr)
        return 0;
    std::size_t i = 0;
    for (; i < scr->lockKey.size(); ++i) {
        LockKeyStat& key = scr->lockKey[i];
        if (key.key_code == ev->code && key.key_down != ev->value) {
            key.key_down = ev->value;
            if (ev->value != 0)
                break;
        }
    }
    if (i == scr->lockKey.size())
        return 0;
    LockKeyStat& key = scr->lockKey[i];
    key.lock_state = key.lock_state == 0 ? 1 : 0;
    ev->type = EV_PRIV_LOCK_KEY_STATE;
    ev->code = static_cast<uint16_t>(i);
    ev->value = key.lock_state;

    tactord::input_event led = now_event(EV_LED, static_cast<uint16_t>(key.led), key.lock_state);
    write_seat_keyboards(scr->index, &led);
    const int n = count_exusb_input.load();
    for (int j = 0; j < n && j < EXTERN_INPUT_MAX; ++j) {
        _InputDev* dev = extern_input[j].load();
        if (is_keyboard_of(dev, scr->index))
            EvdevWrite(dev, &led);
    }
    return 0;
}

void send_key_lock_state(int client)
{
    const ScrInfo* scr = get_screen_info(client);
    if (scr == nullptr)
        return;
    for (uint16_t i = 0; i < scr->lockKey.size(); ++i) {
        tactord::input_event ev{0, 0, EV_PRIV_LOCK_KEY_STATE, i, scr->lockKey[i].lock_state};
        send_event(client, &ev);
    }
}

int handle_led_ctrl(int fd, tactord::input_event* ev)
{
    const int index = find_index_by_fd(fd);
    if (index < 0 || ev == nullptr) {
        TLOG(LEVEL_ERROR, "find fd failed,%d\n", fd);
        return -1;
    }
    TLOG(LEVEL_DEBUG, "led_ctrl: index-->%d, type->%d,code->%d,value->%d\n", index, ev->type, ev->code, ev->value);
    write_seat_keyboards(index, ev);
    return 0;
}
