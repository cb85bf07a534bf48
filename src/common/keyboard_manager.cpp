#include "common/keyboard_manager.h"

#include <linux/input.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>

int set_keyborad_lock_state(int fd, int led, int value)
{
    // The device takes the kernel's own record layout.
    ::input_event ev{};
    timeval now{};
    gettimeofday(&now, nullptr);
    ev.input_event_sec = now.tv_sec;
    ev.input_event_usec = now.tv_usec;
    ev.type = EV_LED;
    ev.code = static_cast<uint16_t>(led);
    ev.value = value;
    return static_cast<int>(write(fd, &ev, sizeof ev));
}
