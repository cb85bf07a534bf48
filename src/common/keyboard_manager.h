// Keyboard lock keys (Caps, Num, Scroll lock) per screen and the keyboard
// LEDs that show them.
#pragma once

#include "common/tactord_types.h"

struct _InputDev;
struct _ScrInfo;

// The screen model a device feeds, which its disp keeps: the player screen of
// its seat (config_disp) in double-player mode, else the one model (0).
int input_dev_screen(const _InputDev* dev);

// Writes one EV_LED event (time = now, code led, value) straight to the
// keyboard's descriptor. Returns the result of write.
int set_keyborad_lock_state(int fd, int led, int value);

// Fills the lock-key tables of every screen model. Returns 0.
int input_init();
// A lock-key press toggles the screen's lock state, rewrites ev into a
// lock-state event (type 28, code = lock index, value = new state) and sets
// the LED on every keyboard of the screen. Other events are left alone.
// Returns 0.
int handle_key_lock(_ScrInfo* scr, tactord::input_event* ev);
// Sends the three lock states of the client's screen to the client.
void send_key_lock_state(int client);
// A client sets keyboard LEDs: ev goes to every keyboard of the client's
// screen. -1 when fd is not a registered client, else 0.
int handle_led_ctrl(int fd, tactord::input_event* ev);
