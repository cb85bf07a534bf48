// Inventory internals visible to its tests and fuzz target.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <mutex>

#include "common/usb_gun/usbinfo.h"

inline constexpr const char* USB_PROC_DEVICES = "/proc/bus/input/devices";
inline constexpr const char* USB_INFO_COPY = "/tmp/usbinfo";

struct UsbDevCtrl_t {
    pthread_t thread{};
    // Guards usbinfo between the watcher thread (which also sends the list
    // with it held) and the name lookup.
    std::mutex mutex_dev;
    UsbInfoCb_t cb{};
    UsbDevInfo_t usbinfo{};
};
extern UsbDevCtrl_t usbdev_ctrl;

// Parses len bytes of the kernel's listing (no terminator needed) into a
// zeroed list: the entries whose physical path holds "usb", 32 at most.
void usbinfo_parse(const char* text, std::size_t len, UsbDevInfo_t* list);

// One pass of the watcher over the number of event nodes last seen (*old):
// 0 unchanged; 1 a new list was taken and sent (*old updated); -1 the list
// could not be taken (*old kept, to be tried again at once).
int usbinfo_watch_pass(int* old);
