// The inventory of USB input devices: taken from the kernel's input-device
// listing "/proc/bus/input/devices" whenever the number of event nodes
// changes, pushed to the scanner client, and searched by name for a
// scanner's event numbers.
#pragma once

#include <cstdint>

#include "common/usb_gun/usbgun_c.h"

inline constexpr int KB_SCAN_MAX_EVT = 4;

// Result of a name lookup.
struct KbScanSupportInfo_t {
    int32_t h_evt[KB_SCAN_MAX_EVT];  // event numbers
    int32_t count;
};

// Zeroes the inventory, keeps cb (called with the list's bytes whenever a
// new list was taken) and starts the watcher thread. 0; -2 when the thread
// cannot be started.
int UsbDevInfoInit(UsbInfoCb_t cb);
// Fills a zeroed list from the kernel's listing (copied to "/tmp/usbinfo"):
// 0; -1 when the copy cannot be opened; -2 when its bytes cannot be held.
int UsbDevGetInfo(UsbDevInfo_t* list);
// Logs the list to the service log; 0.
int UsbDevShowInfo(UsbDevInfo_t list);
// Appends to out the event numbers (at most 4 in all) of the devices whose
// name begins with name. 0 when out holds at least one, -2 when none, -1 for
// a null pointer or a count out of range.
int UsbDevSerachIndex(const char* name, KbScanSupportInfo_t* out);
// Entries of dir whose name begins with "event" and that are character or
// block devices or symbolic links; 0 when dir cannot be opened.
int AddupEventTotal(const char* dir);
