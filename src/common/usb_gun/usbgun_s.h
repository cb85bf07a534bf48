// The scanner service's socket server on "/tmp/UNIX2.domain.scanner": one
// client at a time (the newest), configuration records in, scan and
// inventory records out.
#pragma once

#include <cstdint>

#include "common/usb_gun/usbgun_records.h"

// Waits (100 ms between attempts) until the first client has connected,
// then starts the configuration and accept threads; cb is called with the
// function index of every configuration record received. 0; -1 when the
// lock cannot be set up; -2 or -3 when a thread cannot be started.
int UsbScanGunSrvInit(UsbConfCb_t cb);

// Sends one scan record (head, scan head, data). len + 36 when written; 0
// when no client is connected; -1 out of memory or bad arguments; -2 on a
// short write.
int UsbScanGunWriteData(int slot, int datatype, const uint8_t* data, unsigned len);
// Sends one inventory record. 0 when written or no client is connected; -1
// out of memory or bad arguments; -2 on a short write.
int UsbDevInfoWriteData(const uint8_t* data, int len);

// The configuration the client set last; 0, -1 for a null pointer.
int UsbScanGunGetRouteInfo(ScanGunRouteInfo_t* route);
int UsbScanGunGetDataType(int* datatype);
int UsbScanGunGetConfDesc(ScanGunConfigName_t* name);
