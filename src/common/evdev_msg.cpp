#include "common/evdev_msg.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "common/evdev_msg_internal.h"
#include "common/inputdevice_manager.h"
#include "common/inputevent_handle.h"
#include "common/log.h"
#include "msg_handle.h"

evdev_read_fn evdev_read = ::read;

namespace {

// Events drained per read.
constexpr std::size_t READ_BATCH = 16;
// Reads per call: a device that keeps its node full (a stuck key matrix, a
// flood of reports) is served again in the next pass instead of holding the
// main loop in this one; the node stays readable, so nothing is lost.
constexpr int READS_PER_CALL = 16;

tactord::input_event from_native(const ::input_event& in)
{
    // The target's kernel record has 32-bit times already; a 64-bit host's
    // are cut to the daemon's 32-bit fields.
    return {static_cast<int32_t>(in.input_event_sec), static_cast<int32_t>(in.input_event_usec), in.type,
            in.code, in.value};
}

}  // namespace

int EvdevOpenDevice(const char* path)
{
    const int fd = path != nullptr ? open(path, O_RDWR | O_NONBLOCK) : -1;
    if (fd > 0)
        return fd;
    // Descriptor 0 counts as a failure as well.
    if (fd == 0)
        close(fd);
    TLOG(LEVEL_ERROR, "Unable to open evdev device \"%s\".\n", path != nullptr ? path : "");
    return -1;
}

int EvdevReadInput(void* arg)
{
    auto* dev = static_cast<_InputDev*>(arg);
    if (dev == nullptr)
        return -1;
    std::array<::input_event, READ_BATCH> buf;
    for (int reads = 0; reads < READS_PER_CALL; ++reads) {
        const ssize_t n = evdev_read(dev->fd, buf.data(), sizeof buf);
        if (n <= 0) {
            if (errno == ENODEV) {
                // Unplugged: the hot-plug monitor removes the device. A gone
                // node stays readable for ever, and a record the monitor
                // never removes (a non-USB input whose path it reports
                // otherwise) would cost the loop this pause on every pass:
                // the node leaves the loop now, the record stays. Its
                // descriptor is closed only after this pass, when the record
                // goes, so the number cannot be another device's yet.
                remove_monitor_handle(dev->fd);
                usleep(50000);
            } else if (errno != EAGAIN) {
                TLOG(LEVEL_ERROR, "Read error: %s\n", strerror(errno));
            }
            return 0;
        }
        if (static_cast<std::size_t>(n) % sizeof(::input_event) != 0) {
            // A torn record: the whole read is dropped.
            TLOG(LEVEL_ERROR, "Read error: %s\n", strerror(errno));
            return 0;
        }
        const std::size_t count = static_cast<std::size_t>(n) / sizeof(::input_event);
        for (std::size_t i = 0; i < count; ++i) {
            tactord::input_event ev = from_native(buf[i]);
            ProcessEvdevEvent(dev, &ev);
        }
        if (static_cast<std::size_t>(n) != sizeof buf)
            return 0;
    }
    return 0;
}

int EvdevWrite(_InputDev* dev, tactord::input_event* ev)
{
    if (dev == nullptr || ev == nullptr)
        return -1;
    ::input_event out{};
    out.input_event_sec = ev->tv_sec;
    out.input_event_usec = ev->tv_usec;
    out.type = ev->type;
    out.code = ev->code;
    out.value = ev->value;
    return static_cast<int>(write(dev->fd, &out, sizeof out));
}

void EvdevCloseDevice(int fd)
{
    if (fd >= 1)
        close(fd);
}
