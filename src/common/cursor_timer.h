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
