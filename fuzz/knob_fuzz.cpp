// An arbitrary byte stream, cut into reads as its first byte chooses, through
// the knob receiver, with a display client registered for the focused screen.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "arm/knob_manager.h"
#include "arm/knob_manager_internal.h"
#include "common/inputdevice_manager.h"
#include "common/screen_manager_internal.h"
#include "fuzz_scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = fuzzsupport::set_up_scratch_and_log();
    if (!ready || size == 0)
        return 0;
    int link[2], client[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, link) != 0)
        return 0;
    if (!fuzzsupport::nonblocking_pair(client)) {
        close(link[0]);
        close(link[1]);
        return 0;
    }
    g_knob_fd.store(link[0]);
    knob_is_exist.store(1);
    gs_clients[0].store(client[0]);
    screen_info.client[0].focus = (data[0] & 0x80) != 0 ? 1 : 0;
    knob_partial = {};

    const unsigned cut = 1 + (data[0] & 0x0F);  // bytes per read
    for (size_t at = 1; at < size; at += cut) {
        const size_t n = size - at < cut ? size - at : cut;
        if (write(link[1], data + at, n) != static_cast<ssize_t>(n))
            break;
        handle_knob_data(nullptr);
        fuzzsupport::drain(client[1]);
    }
    close(link[1]);
    if (g_knob_fd.load() != 0)
        handle_knob_data(nullptr);  // the peer's close ends the link
    if (g_knob_fd.load() != 0)
        close(g_knob_fd.load());
    g_knob_fd.store(0);
    gs_clients[0].store(0);
    close(client[0]);
    close(client[1]);
    return 0;
}
