// Device objects of the adapter. Every device belongs to a driver class; a
// class's drivers are made known by its registration function (Init*Adapters)
// and only then can devices of that class be set up. Devices are created by
// name into a fixed table and stay for the life of the process.
#pragma once

#include <array>
#include <cstdint>

enum drv_class : int {
    DRV_CLASS_GPIO,
    DRV_CLASS_SOUND,
    DRV_CLASS_RTC,
    DRV_CLASS_SCREEN,
    DRV_CLASS_KEYBOARD,
    DRV_CLASS_SYSTEM,
    DRV_CLASS_POWER_MANAGE,
    DRV_CLASS_FLASH,
    DRV_CLASS_MACH_CONF,
    DRV_CLASS_UART,
    DRV_CLASS_LED,
    DRV_CLASS_EEPROM,
    DRV_CLASS_SENSOR,
    DRV_CLASS_POWER_BOARD,
    DRV_CLASS_USB,
    DRV_CLASS_LED_ALARM,
    DRV_CLASS_DOCK_EEPROM,
    // Built into the library, known without registration.
    DRV_CLASS_WIFI,
    DRV_CLASS_UTILITY,
    DRV_CLASS_SPI_BRIDGE,
    DRV_CLASS_SSD,
    DRV_CLASS_COUNT
};

inline constexpr int DRV_DEVICE_MAX = 32;
inline constexpr std::size_t DRV_NAME_MAX = 32;
inline constexpr std::size_t DRV_PATH_MAX = 128;

// Speeds and ports of the SPI bridge: four UART ports, a virtual port and the
// SPI clock in Hz.
struct bridge_ports_speed {
    uint32_t uart_bridge_port1;
    uint32_t uart_bridge_port2;
    uint32_t uart_bridge_port3;
    uint32_t uart_bridge_port4;
    uint32_t vir_bridge_port;
    uint32_t spi_bridge_speed;
};

struct drv_device_t {
    drv_class cls;
    std::array<char, DRV_NAME_MAX> name;
    std::array<char, DRV_PATH_MAX> path;  // empty: the device names no path
    int variant;                          // driver variant or bus number
    int variant2;                         // second selector (EEPROM page count)
    bridge_ports_speed ports;             // SPI bridge only
};

// Class registration.
void InitGpioAdapters();
void InitSoundAdapters();
void InitRtcAdapters();
void InitScreenAdapters();
void InitKeyBoardAdapters();
void InitSystemAdapters();
void InitPowerManageAdapters();
void InitFlashAdapters();
void InitMachConfAdapters();
void InitUartAdapters();
void InitLedAdapters();
void InitEepromAdapters();
void InitSensorAdapters();
void InitPowerBoardAdapters();
void InitUSBAdapters();
void InitLedAlarmAdapters();
void InitDockEepromAdapters();

bool drv_class_registered(drv_class cls);

// Creates (or, for a name already set up, updates and returns) a device.
// Fails with null when the class is unknown, the name is missing or too long,
// the path cannot be used (does not exist) or the table is full. A null or
// empty path names no resource and never fails.
drv_device_t* drv_device_create(drv_class cls, const char* name, const char* path, int variant,
                                int variant2);

drv_device_t* drv_device_find(const char* name);
int drv_device_count();
// The idx-th device in order of creation, null past the end.
drv_device_t* drv_device_at(int idx);
