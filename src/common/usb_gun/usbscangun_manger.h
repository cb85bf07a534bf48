// The scanner service's manager: applies the configuration the client sends
// and hands the inventory to the client.
#pragma once

#include <cstdint>

// The socket server's configuration callback: marks the record of kind
// func_index (2 name, 3 data type, 4 route) for the applier thread; others
// are ignored. 0.
int UsbScanGunConfEvent(int func_index);
// The inventory's callback: sends the list to the client.
int UsbScanDevInfoUpdate(uint8_t* data, int len);
