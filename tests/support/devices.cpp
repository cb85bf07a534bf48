#include "support/devices.h"

#include <linux/input.h>

#include <cstring>

namespace testsupport {

TestDevice TestDevice::on(const std::string& new_phys) const
{
    TestDevice d = *this;
    d.phys = new_phys;
    return d;
}

void fill_bits(const std::vector<unsigned>& bits, uint8_t* out, std::size_t len)
{
    std::memset(out, 0, len);
    for (unsigned b : bits) {
        if (b / 8 < len)
            out[b / 8] |= static_cast<uint8_t>(1u << (b % 8));
    }
}

namespace devices {
namespace {

std::vector<unsigned> key_range(unsigned first, unsigned last)
{
    std::vector<unsigned> keys;
    for (unsigned k = first; k <= last; ++k)
        keys.push_back(k);
    return keys;
}

}  // namespace

const TestDevice& single_touch_screen()
{
    static const TestDevice d{"Test Single Touch", "usb-musb-hdrc.0-1/input0", {EV_SYN, EV_KEY, EV_ABS},
                              {ABS_X, ABS_Y}, {BTN_TOUCH}, {}, {{ABS_X, 0, 4095}, {ABS_Y, 0, 4095}}};
    return d;
}

const TestDevice& multi_touch_screen()
{
    static const TestDevice d{"Test Multi Touch",
                              "usb-musb-hdrc.0-1/input0",
                              {EV_SYN, EV_KEY, EV_ABS},
                              {ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID},
                              {BTN_TOUCH},
                              {},
                              {{ABS_X, 0, 1919}, {ABS_Y, 0, 1079}}};
    return d;
}

const TestDevice& full_keyboard()
{
    static const TestDevice d{"Test Keyboard", "usb-musb-hdrc.1-1.1/input0", {EV_SYN, EV_KEY, EV_LED, EV_REP},
                              {}, key_range(1, 127), {}, {}};
    return d;
}

const TestDevice& partial_keyboard()
{
    static const TestDevice d{"Test Keypad", "usb-musb-hdrc.1-1.1/input0", {EV_SYN, EV_KEY}, {},
                              key_range(2, 60), {}, {}};
    return d;
}

const TestDevice& mouse_with_abs()
{
    static const TestDevice d{"Test Mouse",
                              "usb-musb-hdrc.1-1.2/input0",
                              {EV_SYN, EV_KEY, EV_REL, EV_ABS},
                              {ABS_X, ABS_Y},
                              {BTN_LEFT, BTN_MIDDLE, BTN_TOUCH},
                              {REL_X, REL_Y, REL_WHEEL},
                              {{ABS_X, 0, 32767}, {ABS_Y, 0, 32767}}};
    return d;
}

const TestDevice& abs_mouse()
{
    static const TestDevice d{"Test Abs Pointer", "usb-musb-hdrc.1-1.2/input0", {EV_SYN, EV_KEY, EV_ABS},
                              {ABS_X, ABS_Y}, {BTN_LEFT, BTN_RIGHT, BTN_TOUCH}, {},
                              {{ABS_X, 0, 32767}, {ABS_Y, 0, 32767}}};
    return d;
}

const TestDevice& tablet()
{
    static const TestDevice d{"Test Tablet", "usb-musb-hdrc.1-1.2/input0", {EV_SYN, EV_KEY, EV_ABS},
                              {ABS_X, ABS_Y, ABS_PRESSURE}, {BTN_TOOL_PEN, BTN_STYLUS, BTN_TOUCH}, {},
                              {{ABS_X, 0, 20000}, {ABS_Y, 0, 15000}}};
    return d;
}

const TestDevice& touchpad()
{
    static const TestDevice d{"Test Touchpad", "usb-musb-hdrc.1-1.2/input0", {EV_SYN, EV_KEY, EV_ABS},
                              {ABS_X, ABS_Y}, {BTN_LEFT, BTN_TOOL_FINGER, BTN_TOUCH}, {},
                              {{ABS_X, 0, 1000}, {ABS_Y, 0, 800}}};
    return d;
}

const TestDevice& joystick()
{
    static const TestDevice d{"Test Joystick", "usb-musb-hdrc.1-1.2/input0", {EV_SYN, EV_KEY, EV_ABS},
                              {ABS_X, ABS_Y}, {BTN_JOYSTICK, BTN_THUMB}, {},
                              {{ABS_X, -127, 127}, {ABS_Y, -127, 127}}};
    return d;
}

const TestDevice& accelerometer()
{
    static const TestDevice d{"Test Accelerometer", "", {EV_SYN, EV_ABS}, {ABS_X, ABS_Y, ABS_Z}, {}, {},
                              {{ABS_X, -512, 512}, {ABS_Y, -512, 512}}};
    return d;
}

const TestDevice& front_panel()
{
    static const TestDevice d{"Test Front Panel", "", {EV_SYN, EV_KEY}, {}, {KEY_OK, KEY_SELECT, 0x2BF},
                              {}, {}};
    return d;
}

const TestDevice& wedge_scanner()
{
    std::vector<unsigned> keys = key_range(KEY_1, KEY_0);
    keys.push_back(KEY_ENTER);
    keys.push_back(KEY_LEFTSHIFT);
    static const TestDevice d{"Test Scanner", "usb-musb-hdrc.1-1.2/input0", {EV_SYN, EV_KEY}, {}, keys, {}, {}};
    return d;
}

const TestDevice& misc_buttons()
{
    static const TestDevice d{"Test Buttons", "", {EV_SYN, EV_KEY}, {}, {BTN_0, BTN_MISC + 5, 0x2C0}, {}, {}};
    return d;
}

}  // namespace devices
}  // namespace testsupport
