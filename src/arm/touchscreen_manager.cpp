#include "arm/touchscreen_manager.h"

#include <linux/input-event-codes.h>

#include <cstdint>

#include "arm/touchscreen_manager_internal.h"
#include "common/inputevent_handle.h"
#include "common/keyaudio/key_voice.h"
#include "common/usb_gun/crc32.h"
#include "common/usb_gun/unixsocket.h"
#include "func/touchscreen/touchscreen_lock_ctl.h"

namespace {

bool is_touch_button(const tactord::input_event& ev)
{
    return ev.code == BTN_MOUSE || ev.code == BTN_TOUCH;
}

}  // namespace

KeyAudioDatabuf build_key_audio_request(uint32_t volume, uint32_t seat)
{
    KeyAudioDatabuf rec{};
    rec.Heard.flag = KEY_AUDIO_FLAG;
    rec.Heard.length = sizeof rec;
    rec.keyvolume = volume;
    rec.index = seat;
    rec.check = calculate_CRC32(&rec, offsetof(KeyAudioDatabuf, check));
    return rec;
}

int touch_screen_lock(int seat)
{
    return touchscreen_get_lock_status(seat) == 0 ? 1 : 0;
}

int touch_screen_lock_KEY(tactord::input_event* ev, int seat)
{
    if (ev == nullptr || !is_touch_button(*ev))
        return 0;
    return touch_screen_lock(seat);
}

int touch_screen_lock_ABS(tactord::input_event* ev, int seat)
{
    if (ev == nullptr)
        return 0;
    tactord::input_event scaled = *ev;
    // Unsigned arithmetic: a raw value from the device may be anything, and
    // the scaling wraps instead of overflowing.
    const auto raw = static_cast<uint32_t>(ev->value);
    if (ts_num_x == 1023)
        scaled.value = static_cast<int32_t>(raw * 4U);
    else if (ts_num_x == 4095)
        scaled.value = static_cast<int32_t>(raw << 12) / 4096;
    touchscreen_set_coordinate(seat, &scaled);
    if (seat < 0 || seat > 2)
        return 0;
    return touch_screen_lock(seat);
}

void touch_voice_play(tactord::input_event* ev, int seat)
{
    if (ev == nullptr)
        return;
    int volume = 0;
    if (ev->type == EV_KEY && is_touch_button(*ev) && ev->value != 0) {
        volume = touchscreen_get_key_volume(0);
        // Only a positive volume clicks: -1 means the adapter could not tell.
        // The request goes to a connected audio client only, never to
        // descriptor 0.
        const int fd = key_audio_client_fd();
        if (volume > 0 && fd > 0) {
            const KeyAudioDatabuf rec = build_key_audio_request(static_cast<uint32_t>(volume), static_cast<uint32_t>(seat));
            unix_socket_write(fd, &rec, sizeof rec);
        }
    }
    touchscreen_set_coordinate_with_no_play(seat, ev);
}
