// Set-up functions the board uses to create its devices. Each returns the
// device object, or null when the device cannot be set up. The trailing
// numbers select the driver variant or bus number inside the class.
#pragma once

#include <cstdint>

#include "func/device/drv_device.h"

drv_device_t* SensorSetup(const char* name, const char* path, int n);
drv_device_t* PowerBoardSetup(const char* name, int n);
drv_device_t* PowerManageSetup(const char* name, int n);
drv_device_t* UartSetup(const char* name, const char* path, int n);
drv_device_t* Screen_Setup(const char* name, const char* path, int n);
drv_device_t* RtcSetup(const char* name, const char* path, int n);
drv_device_t* System_Setup(const char* name, const char* path, int n);
drv_device_t* WifiSetup(int n);
drv_device_t* utility_setup(int n);
drv_device_t* LedSetup(const char* name, const char* path, int n);
drv_device_t* MachConfSetup(const char* name, int n);
drv_device_t* USBSetup(const char* name, int n);
drv_device_t* Spi_Bridge_Setup(const char* name, uint32_t uart_port1, uint32_t uart_port2,
                               uint32_t uart_port3, uint32_t uart_port4, uint32_t vir_port,
                               uint32_t speed, int mode);
drv_device_t* SsdSetup(int n);
drv_device_t* EepromSetup(const char* name, const char* path, int n, int m);

// Names of the devices whose set-up takes no name.
inline constexpr const char* DRV_WIFI_NAME = "wifi";
inline constexpr const char* DRV_UTILITY_NAME = "utility";
inline constexpr const char* DRV_SSD_NAME = "emmc_health";
