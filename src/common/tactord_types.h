// Wire records and constants shared across the daemon, its clients and the
// driver adapter.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tactord {

// The event record of the target's kernel ABI, which is also the record the
// display clients read from their socket: 16 bytes, little-endian. It is the
// daemon's own type so that a 64-bit host (24-byte kernel record) speaks the
// same wire format; evdev access converts at the device boundary.
struct input_event {
    int32_t tv_sec;
    int32_t tv_usec;
    uint16_t type;
    uint16_t code;
    int32_t value;
};
static_assert(sizeof(input_event) == 16);
static_assert(offsetof(input_event, tv_sec) == 0);
static_assert(offsetof(input_event, tv_usec) == 4);
static_assert(offsetof(input_event, type) == 8);
static_assert(offsetof(input_event, code) == 10);
static_assert(offsetof(input_event, value) == 12);

}  // namespace tactord

// Screen (client) indexes.
enum _SCREEN_INDEX : int {
    MAIN_SCREEN = 0,
    SUB_SCREEN = 1,
    IPC_SCREEN = 2,
};
inline constexpr int SCREEN_COUNT = 3;

// Multi-screen mode bits; get_current_multimode() ORs the base mode with the
// IPC bits.
enum _MultiMode : int {
    MODE_CLONE = 1,
    MODE_EXTERN = 2,
    MODE_DOUBLE_PLAYER = 4,
    MODE_IPC_WINDOW = 8,
    MODE_IPC_EXTERN = 16,
};

// Private event types sent to display clients inside input_event records.
inline constexpr uint16_t EV_PRIV_FOCUS_MOVED = 26;
inline constexpr uint16_t EV_PRIV_CURSOR_MOVED = 27;
inline constexpr uint16_t EV_PRIV_LOCK_KEY_STATE = 28;
inline constexpr uint16_t EV_PRIV_CURSOR_SHOW = 33;
// A touch delivered while the touch lock is active carries its real type + 34
// (34..37).
inline constexpr uint16_t EV_PRIV_LOCKED_TOUCH_BASE = 34;

// Registry type codes of an input device.
inline constexpr int INPUT_TYPE_UNKNOWN = 0;
inline constexpr int INPUT_TYPE_KEYBOARD = 1;
inline constexpr int INPUT_TYPE_MOUSE = 2;
inline constexpr int INPUT_TYPE_TOUCHSCREEN = 32;
