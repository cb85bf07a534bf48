// Feeds the scanner service's configuration reassembly an arbitrary byte
// stream cut into arbitrary reads (fuzz_reads.h).
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/usb_gun/usbgun_s_internal.h"
#include "fuzz_reads.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::memset(usbgun_srv.buf, 0, sizeof usbgun_srv.buf);
    usbgun_srv.held = 0;
    usbgun_srv.cb = {[](int) { return 0; }, nullptr};
    // The service itself would stop for good on keep_locked; going on
    // reaches the states that follow.
    for_each_read(data, size, usbgun_srv.buf, sizeof usbgun_srv.buf, &usbgun_srv.held,
                  [](std::size_t n, std::size_t) { usbgun_config_take(static_cast<ssize_t>(n)); });
    return 0;
}
