// The knob receiver: a rotary knob with a push button delivers 4-byte
// packages on a stream connection, and each checked package becomes a key
// event for the screen that has the keyboard focus.
//
// Nothing in the daemon opens the knob connection. Whoever wires it connects
// the link, stores the descriptor in g_knob_fd, sets knob_is_exist to 1 and
// registers handle_knob_data with the monitor list
// (add_monitor_handle(g_knob_fd, handle_knob_data, nullptr)).
#pragma once

#include <atomic>
#include <cstdint>

// Knob package, 4 bytes in this order.
struct KnobRecvData {
    uint8_t head;   // KNOB_HEAD
    uint8_t info;   // KNOB_RIGHT, KNOB_LEFT, KNOB_PRESS or KNOB_HEARTBEAT
    uint8_t check;  // (head + info + tail) modulo 256
    uint8_t tail;   // any value; it enters only the check
};
static_assert(sizeof(KnobRecvData) == 4);

inline constexpr uint8_t KNOB_HEAD = 0x9E;
inline constexpr uint8_t KNOB_RIGHT = 80;
inline constexpr uint8_t KNOB_LEFT = 81;
inline constexpr uint8_t KNOB_PRESS = 82;
inline constexpr uint8_t KNOB_HEARTBEAT = 83;

// Key codes the knob produces.
inline constexpr uint16_t KNOB_KEY_RIGHT = 187;
inline constexpr uint16_t KNOB_KEY_LEFT = 186;
inline constexpr uint16_t KNOB_KEY_ENTER = 28;

// The connection descriptor (0 when none) and the presence flag.
extern std::atomic<int> g_knob_fd;
extern std::atomic<int> knob_is_exist;

// Monitor-list handler for g_knob_fd; the argument is not used. Returns 0.
int handle_knob_data(void* unused);
// Copies count bytes into package positions start onward (0 head, 1 info,
// 2 check, 3 tail).
void recv_data_to_knob(KnobRecvData* pkg, const uint8_t* bytes, int start, int count);
bool check_knob_pkg(const KnobRecvData* pkg);
// Turns one checked package into key events for the focused screen; a press
// carries value 6 when repeat is non-zero, else 1.
void handle_knob_msg(const KnobRecvData* pkg, int repeat);
