// Feeds the inventory's parser an arbitrary device listing (no terminator),
// then looks up names taken from the parsed entries and from the input.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>

#include "common/usb_gun/usbinfo.h"
#include "common/usb_gun/usbinfo_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    UsbDevInfo_t list{};
    usbinfo_parse(reinterpret_cast<const char*>(data), size, &list);
    {
        std::lock_guard<std::mutex> guard(usbdev_ctrl.mutex_dev);
        usbdev_ctrl.usbinfo = list;
    }
    for (int i = 0; i < list.usbdev_total_count; ++i) {
        KbScanSupportInfo_t found{};
        UsbDevSerachIndex(list.usb_desc[i].devname, &found);
    }
    const std::string name(reinterpret_cast<const char*>(data), size < 16 ? size : 16);
    KbScanSupportInfo_t found{};
    UsbDevSerachIndex(name.c_str(), &found);
    UsbDevShowInfo(list);
    return 0;
}
