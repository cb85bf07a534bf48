// Touch-lock, key-sound and touch-coordinate wrappers over the driver
// adapter's touchscreen lock control. seat is the touchscreen seat 0..2.
#pragma once

#include "common/tactord_types.h"

// 1 when the adapter reports the screen locked (status 0): the touch takes
// the touch-lock path. 0 for unlocked (1) and for no configuration device
// (-1): the touch goes out normally.
int touch_screen_lock(int seat);
// The same answer for BTN_MOUSE and BTN_TOUCH; 0 for every other key.
int touch_screen_lock_KEY(tactord::input_event* ev, int seat);
// Hands the adapter the coordinate scaled to 12 bits, then the lock answer
// (0 for a seat above 2).
int touch_screen_lock_ABS(tactord::input_event* ev, int seat);
// A touch press asks for the key-click volume and, when there is one, sends
// the key-sound request to the connected audio client; every event is then
// mirrored into the adapter without a click.
void touch_voice_play(tactord::input_event* ev, int seat);
