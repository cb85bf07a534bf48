// Feeds the scanner client library's receiver an arbitrary byte stream cut
// into arbitrary reads (fuzz_reads.h), taking scans out of the ring with
// UsbGunRead in between and draining it at the end.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/usb_gun/usbgun_c.h"
#include "common/usb_gun/usbgun_c_internal.h"
#include "fuzz_reads.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Client_Ctrl_t& c = usbgun_client;
    std::memset(c.buf, 0, sizeof c.buf);
    c.held = 0;
    c.rb = {};
    c.cb = {[](uint8_t*, int) { return 0; }, nullptr};
    static uint8_t out[RING_SIZE];
    for_each_read(data, size, c.buf, sizeof c.buf, &c.held, [](std::size_t n, std::size_t at) {
        usbgun_c_take(static_cast<ssize_t>(n));
        // Every few reads the program takes some of the scans.
        if ((at & 3) == 0)
            UsbGunRead(out, static_cast<int>(n));
    });
    while (UsbGunRead(out, 4096) > 0) {
    }
    UsbDevInfo_t list;
    UsbDevInfoGet(&list);
    return 0;
}
