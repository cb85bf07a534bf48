// Cursor-timer state visible to its tests.
#pragma once

#include <array>
#include <atomic>
#include <mutex>

struct _CursorInfo {
    // Attached USB pointing devices of the screen. Written by the hot-plug
    // thread, read by the timer thread without cursor_lock: a stale value only
    // delays a decision by one tick.
    std::atomic<int> usb_num{0};
    std::atomic<int> state{0};    // 1 = cursor shown, 0 = hidden (under cursor_lock)
    std::atomic<int> counter{0};  // seconds since the last motion
};

extern std::array<_CursorInfo, 3> gs_cursor;

// Hide delay in seconds, default 30. Set by the control socket, read by the
// timer thread.
extern std::atomic<int> time_out;
// Guards the state decisions of gs_cursor between the timer thread and the
// threads that move the cursor.
extern std::mutex cursor_lock;

// One tick of the timer thread (after its one-second sleep): counts the
// second and announces a changed cursor state.
void cursor_timer_tick();
// What the thread does when it starts: entries 0 and 1 shown.
void cursor_timer_start_state();
