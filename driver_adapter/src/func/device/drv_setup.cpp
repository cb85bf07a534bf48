#include "func/device/drv_setup.h"

drv_device_t* SensorSetup(const char* name, const char* path, int n)
{
    return drv_device_create(DRV_CLASS_SENSOR, name, path, n, 0);
}

drv_device_t* PowerBoardSetup(const char* name, int n)
{
    return drv_device_create(DRV_CLASS_POWER_BOARD, name, nullptr, n, 0);
}

drv_device_t* PowerManageSetup(const char* name, int n)
{
    return drv_device_create(DRV_CLASS_POWER_MANAGE, name, nullptr, n, 0);
}

drv_device_t* UartSetup(const char* name, const char* path, int n)
{
    return drv_device_create(DRV_CLASS_UART, name, path, n, 0);
}

drv_device_t* Screen_Setup(const char* name, const char* path, int n)
{
    return drv_device_create(DRV_CLASS_SCREEN, name, path, n, 0);
}

drv_device_t* RtcSetup(const char* name, const char* path, int n)
{
    return drv_device_create(DRV_CLASS_RTC, name, path, n, 0);
}

drv_device_t* System_Setup(const char* name, const char* path, int n)
{
    return drv_device_create(DRV_CLASS_SYSTEM, name, path, n, 0);
}

drv_device_t* WifiSetup(int n)
{
    return drv_device_create(DRV_CLASS_WIFI, DRV_WIFI_NAME, nullptr, n, 0);
}

drv_device_t* utility_setup(int n)
{
    return drv_device_create(DRV_CLASS_UTILITY, DRV_UTILITY_NAME, nullptr, n, 0);
}

drv_device_t* LedSetup(const char* name, const char* path, int n)
{
    return drv_device_create(DRV_CLASS_LED, name, path, n, 0);
}

drv_device_t* MachConfSetup(const char* name, int n)
{
    return drv_device_create(DRV_CLASS_MACH_CONF, name, nullptr, n, 0);
}

drv_device_t* USBSetup(const char* name, int n)
{
    return drv_device_create(DRV_CLASS_USB, name, nullptr, n, 0);
}

drv_device_t* Spi_Bridge_Setup(const char* name, uint32_t uart_port1, uint32_t uart_port2,
                               uint32_t uart_port3, uint32_t uart_port4, uint32_t vir_port,
                               uint32_t speed, int mode)
{
    drv_device_t* dev = drv_device_create(DRV_CLASS_SPI_BRIDGE, name, nullptr, mode, 0);
    if (dev != nullptr)
        dev->ports = {uart_port1, uart_port2, uart_port3, uart_port4, vir_port, speed};
    return dev;
}

drv_device_t* SsdSetup(int n)
{
    return drv_device_create(DRV_CLASS_SSD, DRV_SSD_NAME, nullptr, n, 0);
}

drv_device_t* EepromSetup(const char* name, const char* path, int n, int m)
{
    return drv_device_create(DRV_CLASS_EEPROM, name, path, n, m);
}
