#include "sim/devices.h"

#include <linux/input.h>

#include <cstring>

namespace emul {

TestDevice TestDevice::on(const std::string& new_phys) const
{
    TestDevice d = *this;
    d.phys = new_phys;
    return d;
}

void fill_bits(const std::vector<unsigned>& bits, uint8_t* out, std::size_t len)
{
    std::memset(out, 0, len);
    for (unsigned b : bits)
        if (b / 8 < len)
            out[b / 8] |= static_cast<uint8_t>(1u << (b % 8));
}

namespace devices {
namespace {

// extra, then the keys first..last.
std::vector<unsigned> keys(unsigned first, unsigned last, std::vector<unsigned> extra = {})
{
    for (unsigned k = first; k <= last; ++k)
        extra.push_back(k);
    return extra;
}

const char* const kSeatTwoPort = "usb-musb-hdrc.1-1.2/input0";
const std::vector<unsigned> kKeyAbs = {EV_SYN, EV_KEY, EV_ABS};

}  // namespace

// Each device is built on first use and lives for the rest of the process.
#define TEST_DEVICE(fn, ...)                    \
    const TestDevice& fn()                      \
    {                                           \
        static const TestDevice d{__VA_ARGS__}; \
        return d;                               \
    }

TEST_DEVICE(single_touch_screen, "Test Single Touch", "usb-musb-hdrc.0-1/input0", kKeyAbs, {ABS_X, ABS_Y},
            {BTN_TOUCH}, {}, {{ABS_X, 0, 4095}, {ABS_Y, 0, 4095}})
TEST_DEVICE(multi_touch_screen, "Test Multi Touch", "usb-musb-hdrc.0-1/input0", kKeyAbs,
            {ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID}, {BTN_TOUCH}, {},
            {{ABS_X, 0, 1919}, {ABS_Y, 0, 1079}})
TEST_DEVICE(full_keyboard, "Test Keyboard", "usb-musb-hdrc.1-1.1/input0", {EV_SYN, EV_KEY, EV_LED, EV_REP}, {},
            keys(1, 127), {}, {})
TEST_DEVICE(partial_keyboard, "Test Keypad", "usb-musb-hdrc.1-1.1/input0", {EV_SYN, EV_KEY}, {}, keys(2, 60), {}, {})
TEST_DEVICE(mouse, "Test Wheel Mouse", kSeatTwoPort, {EV_SYN, EV_KEY, EV_REL}, {}, {BTN_LEFT, BTN_RIGHT, BTN_MIDDLE},
            {REL_X, REL_Y, REL_WHEEL}, {})
TEST_DEVICE(mouse_with_abs, "Test Mouse", kSeatTwoPort, {EV_SYN, EV_KEY, EV_REL, EV_ABS}, {ABS_X, ABS_Y},
            {BTN_LEFT, BTN_MIDDLE, BTN_TOUCH}, {REL_X, REL_Y, REL_WHEEL}, {{ABS_X, 0, 32767}, {ABS_Y, 0, 32767}})
TEST_DEVICE(abs_mouse, "Test Abs Pointer", kSeatTwoPort, kKeyAbs, {ABS_X, ABS_Y}, {BTN_LEFT, BTN_RIGHT, BTN_TOUCH},
            {}, {{ABS_X, 0, 32767}, {ABS_Y, 0, 32767}})
TEST_DEVICE(tablet, "Test Tablet", kSeatTwoPort, kKeyAbs, {ABS_X, ABS_Y, ABS_PRESSURE},
            {BTN_TOOL_PEN, BTN_STYLUS, BTN_TOUCH}, {}, {{ABS_X, 0, 20000}, {ABS_Y, 0, 15000}})
TEST_DEVICE(touchpad, "Test Touchpad", kSeatTwoPort, kKeyAbs, {ABS_X, ABS_Y}, {BTN_LEFT, BTN_TOOL_FINGER, BTN_TOUCH},
            {}, {{ABS_X, 0, 1000}, {ABS_Y, 0, 800}})
TEST_DEVICE(joystick, "Test Joystick", kSeatTwoPort, kKeyAbs, {ABS_X, ABS_Y}, {BTN_JOYSTICK, BTN_THUMB}, {},
            {{ABS_X, -127, 127}, {ABS_Y, -127, 127}})
TEST_DEVICE(accelerometer, "Test Accelerometer", "", {EV_SYN, EV_ABS}, {ABS_X, ABS_Y, ABS_Z}, {}, {},
            {{ABS_X, -512, 512}, {ABS_Y, -512, 512}})
TEST_DEVICE(front_panel, "Test Front Panel", "", {EV_SYN, EV_KEY}, {}, {KEY_OK, KEY_SELECT, 0x2BF}, {}, {})
TEST_DEVICE(wedge_scanner, "Test Scanner", kSeatTwoPort, {EV_SYN, EV_KEY}, {},
            keys(KEY_1, KEY_0, {KEY_ENTER, KEY_LEFTSHIFT}), {}, {})
TEST_DEVICE(misc_buttons, "Test Buttons", "", {EV_SYN, EV_KEY}, {}, {BTN_0, BTN_MISC + 5, 0x2C0}, {}, {})

}  // namespace devices

const std::vector<BoardDevice>& board()
{
    static const std::vector<BoardDevice> b = {
        {"panel", "the board's own touch panel (no USB, single touch, calibrated by tactord)",
         {"Board Touch Panel", "tsc/input0", {EV_SYN, EV_KEY, EV_ABS}, {ABS_X, ABS_Y, ABS_PRESSURE}, {BTN_TOUCH}, {},
          {{ABS_X, 0, 4095}, {ABS_Y, 0, 4095}}}},
        {"touchscreen", "USB multi-touch screen on seat 5 (main screen)",
         {"USB Touchscreen", "usb-musb-hdrc.0-1/input0", {EV_SYN, EV_KEY, EV_ABS},
          {ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID}, {BTN_TOUCH}, {},
          {{ABS_X, 0, 4095}, {ABS_Y, 0, 4095}, {ABS_MT_POSITION_X, 0, 4095}, {ABS_MT_POSITION_Y, 0, 4095}}}},
        {"keyboard", "USB keyboard on seat 1 (main screen), with Caps, Num and Scroll Lock LEDs",
         devices::full_keyboard().on("usb-musb-hdrc.1-1.1/input0")},
        {"mouse", "USB wheel mouse on seat 2 (sub screen)", devices::mouse()},
    };
    return b;
}

}  // namespace emul
