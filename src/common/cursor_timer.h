// Cursor hide timer (one-second decision thread) and the main loop's liveness
// watchdog.
#pragma once

#include <atomic>

// Starts the watchdog thread over counter when enable is non-zero: the process
// is aborted with SIGABRT once the counter has not moved for more than limit
// seconds. Returns 0, or -1 when the thread cannot be started.
int Init_Watch(int enable, std::atomic<unsigned int>* counter, unsigned int limit);

// Attached USB pointing devices per screen (gs_cursor[screen].usb_num).
void usb_input_increase(unsigned screen);
void usb_input_decrease(unsigned screen);

// Cursor hide timer: the client holding the cursor is told to hide it when no
// USB pointing device is attached or none has moved for time_out seconds, and
// to show it again after motion.

// Starts the one-second timer thread: 0, or -1 (logged).
int init_cursor_timer();
// New hide delay for s >= 1; 0 and negative values are ignored.
void set_cursor_hide_timer_seconds(int s);
// A mouse moved on client's screen: its idle counter restarts (entry client
// in double-player mode, entry 0 otherwise; a client outside the table is
// ignored).
void clear_timer_flag(int client);
// The client lost (lost 1) or gained (0) the cursor: the screen's cursor
// state becomes 1 - lost. Ignored for a client above 1 or lost above 1.
void set_cursor_move_state(unsigned client, unsigned lost);
// The decision rule: the new state (1 shown, 0 hidden).
int handle_cursor_state(int usb_num, int counter, int state);
