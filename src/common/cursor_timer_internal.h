// Cursor-timer state visible to its tests.
#pragma once

#include <array>
#include <atomic>

struct _CursorInfo {
    // Attached USB pointing devices of the screen. Written by the hot-plug
    // thread, read by the timer thread without cursor_lock: a stale value only
    // delays a decision by one tick.
    std::atomic<int> usb_num{0};
    std::atomic<int> state{0};    // 1 = cursor shown, 0 = hidden (under cursor_lock)
    std::atomic<int> counter{0};  // seconds since the last motion
};

extern std::array<_CursorInfo, 3> gs_cursor;
