// The sound driver: the front board's sound device and its play requests.
#pragma once

#include "func/device/drv_device.h"

drv_device_t* SoundSetup(const char* name, const char* path, int n);

// Asks the sound device to play sound number `sound` at `volume` on the given
// screen's output. Returns 0, or -1 when no sound device is set up. Takes no
// lock and allocates nothing (called on the touch path).
int Sound_Play(int sound, int volume, int param3, int param4, int screen, int param6);

// The last request taken by Sound_Play and the number taken so far.
struct sound_play_request {
    int sound;
    int volume;
    int param3;
    int param4;
    int screen;
    int param6;
};
unsigned int sound_play_count();
sound_play_request sound_last_request();
