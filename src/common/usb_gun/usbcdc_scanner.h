// The CDC-serial scanner reader: serves the ports "/dev/ttyACM0".."3", one
// scanner at a time, and hands every chunk of raw serial bytes to the
// service.
#pragma once

#include "common/usb_gun/usbgun_records.h"

// Zeroes the ports, keeps cb and starts the reader thread. 0; -1 when the
// thread cannot be started.
int UsbCdcScanGun_init(UsbScanGunCb_t cb);
// Runs a shell command; system()'s result.
int SystemExec(const char* command);
