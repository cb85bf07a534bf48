// The keyboard-wedge scanner reader: reads the event nodes the client has
// declared scanners (four slots, one scanner served at a time) and hands
// every chunk of raw input-event records to the service.
#pragma once

#include "common/usb_gun/usbgun_records.h"

// Zeroes the slots, keeps cb and starts the reader thread. 0; -2 when the
// thread cannot be started.
int UsbKbdScanGun_Init(UsbScanGunCb_t cb);
// Declares event node event_index a scanner (bOn) or not; 0.
int UsbKbdScanGunSetEvtIndex(int event_index, bool bOn);
