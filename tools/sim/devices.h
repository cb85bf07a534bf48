// Input devices described as data (capability bits, axis ranges, sysfs name
// and physical path): typical devices for the tests, and the simulated
// board that tactord-sim and the system tests share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace emul {

struct AbsAxis {
    unsigned code;
    int minimum;
    int maximum;
};

struct TestDevice {
    std::string name;  // sysfs "name"
    std::string phys;  // sysfs "phys" (kernel physical path, no line feed)
    std::vector<unsigned> ev;
    std::vector<unsigned> abs;
    std::vector<unsigned> key;
    std::vector<unsigned> rel;
    std::vector<AbsAxis> axes;

    // Same device on another port.
    TestDevice on(const std::string& new_phys) const;
};

// Sets the listed bits in a zeroed bitmap of len bytes (bits beyond it are
// dropped, as the kernel does with a short request).
void fill_bits(const std::vector<unsigned>& bits, uint8_t* out, std::size_t len);

namespace devices {
const TestDevice& single_touch_screen();  // ABS_X/Y + BTN_TOUCH: needs calibration
const TestDevice& multi_touch_screen();   // + ABS_MT_POSITION_X/Y
const TestDevice& full_keyboard();        // keys 1..127 and LEDs
const TestDevice& partial_keyboard();     // first key row incomplete (no KEY_ESC)
const TestDevice& mouse();                // REL_X/Y and the wheel, three buttons
const TestDevice& mouse_with_abs();       // REL_X/Y + BTN_LEFT, also ABS_X/Y + BTN_TOUCH
const TestDevice& abs_mouse();            // ABS_X/Y with BTN_LEFT and BTN_RIGHT, no REL
const TestDevice& tablet();               // pen and stylus
const TestDevice& touchpad();             // BTN_TOOL_FINGER
const TestDevice& joystick();             // BTN_JOYSTICK
const TestDevice& accelerometer();        // ABS_X/Y/Z, no EV_KEY
const TestDevice& front_panel();          // keys only in the high block
const TestDevice& wedge_scanner();        // digits, Enter, Shift: no full first row
const TestDevice& misc_buttons();         // keys above 255 outside the high block only
}  // namespace devices

// One device of the simulated board. The USB ports are those of the sample
// etc/port.conf: seat 5 (usb-musb-hdrc.0-1) is the main touchscreen's, seat 1
// (usb-musb-hdrc.1-1.1) and screen 0 have the keyboard, seat 2
// (usb-musb-hdrc.1-1.2) and screen 1 the mouse.
struct BoardDevice {
    std::string name;  // what a person calls it in tactord-sim
    std::string what;  // one line about it
    TestDevice dev;
};
// The board in plug order: "panel" (the board's own touch controller, no USB,
// single touch, needs calibration), "touchscreen" (USB multi-touch on seat
// 5), "keyboard", "mouse".
const std::vector<BoardDevice>& board();
// Framebuffer size of the board's main panel.
inline constexpr unsigned kBoardWidth = 1280;
inline constexpr unsigned kBoardHeight = 800;

}  // namespace emul
