// Keyboard lock keys and LEDs.
#pragma once

// Writes one EV_LED event (time = now, code led, value) straight to the
// keyboard's descriptor. Returns the result of write.
int set_keyborad_lock_state(int fd, int led, int value);
