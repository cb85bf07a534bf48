// The scanner service's manager: starts the service, applies the
// configuration the client sends, routes every scan to the screen it is
// meant for and hands the inventory to the client.
#pragma once

#include <cstdint>

// The service's own log.
inline constexpr const char* SCANNER_LOG_PATH = "/tmp/scan-server.txt";

// Opens the service log and starts the service's start thread, which waits
// for the first client before it reads any scanner. pthread_create's result.
int UsbScanGunInit();

// The socket server's configuration callback: marks the record of kind
// func_index (2 name, 3 data type, 4 route) for the applier thread; others
// are ignored. 0.
int UsbScanGunConfEvent(int func_index);
// The inventory's callback: sends the list to the client.
int UsbScanDevInfoUpdate(uint8_t* data, int len);
// The readers' data callbacks: route a chunk of wedge-scanner input events
// (data type 0) or CDC bytes (data type 1) by the route the client set. The
// writer's result; -1 for a screen or mode that cannot be served.
int UsbScanGunKbdWriteData(uint8_t* data, int len);
int UsbScanGunCdcWriteData(uint8_t* data, int len);
