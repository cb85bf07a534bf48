#include "func/device/drv_device.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "func/device/drv_device_internal.h"

namespace {

std::mutex g_drv_lock;  // guards every g_drv_* table and count below
std::array<bool, DRV_CLASS_COUNT> g_drv_registered{};
std::array<drv_device_t, DRV_DEVICE_MAX> g_drv_devices{};
int g_drv_device_count = 0;
std::array<drv_class, DRV_REGISTRATION_LOG_MAX> g_drv_reg_log{};
int g_drv_reg_count = 0;

bool path_exists(const char* path)
{
    return access(path, F_OK) == 0;
}
std::atomic<drv_path_probe> g_drv_probe{path_exists};

void register_class(drv_class cls)
{
    std::lock_guard<std::mutex> guard(g_drv_lock);
    g_drv_registered[cls] = true;
    if (g_drv_reg_count < DRV_REGISTRATION_LOG_MAX)
        g_drv_reg_log[g_drv_reg_count++] = cls;
}

bool builtin_class(drv_class cls)
{
    return cls >= DRV_CLASS_WIFI && cls < DRV_CLASS_COUNT;
}

drv_device_t* find_locked(const char* name)
{
    for (int i = 0; i < g_drv_device_count; ++i) {
        if (std::strcmp(g_drv_devices[i].name.data(), name) == 0)
            return &g_drv_devices[i];
    }
    return nullptr;
}

}  // namespace

void InitGpioAdapters() { register_class(DRV_CLASS_GPIO); }
void InitSoundAdapters() { register_class(DRV_CLASS_SOUND); }
void InitRtcAdapters() { register_class(DRV_CLASS_RTC); }
void InitScreenAdapters() { register_class(DRV_CLASS_SCREEN); }
void InitKeyBoardAdapters() { register_class(DRV_CLASS_KEYBOARD); }
void InitSystemAdapters() { register_class(DRV_CLASS_SYSTEM); }
void InitPowerManageAdapters() { register_class(DRV_CLASS_POWER_MANAGE); }
void InitFlashAdapters() { register_class(DRV_CLASS_FLASH); }
void InitMachConfAdapters() { register_class(DRV_CLASS_MACH_CONF); }
void InitUartAdapters() { register_class(DRV_CLASS_UART); }
void InitLedAdapters() { register_class(DRV_CLASS_LED); }
void InitEepromAdapters() { register_class(DRV_CLASS_EEPROM); }
void InitSensorAdapters() { register_class(DRV_CLASS_SENSOR); }
void InitPowerBoardAdapters() { register_class(DRV_CLASS_POWER_BOARD); }
void InitUSBAdapters() { register_class(DRV_CLASS_USB); }
void InitLedAlarmAdapters() { register_class(DRV_CLASS_LED_ALARM); }
void InitDockEepromAdapters() { register_class(DRV_CLASS_DOCK_EEPROM); }

bool drv_class_registered(drv_class cls)
{
    if (cls < 0 || cls >= DRV_CLASS_COUNT)
        return false;
    if (builtin_class(cls))
        return true;
    std::lock_guard<std::mutex> guard(g_drv_lock);
    return g_drv_registered[cls];
}

drv_device_t* drv_device_create(drv_class cls, const char* name, const char* path, int variant,
                                int variant2)
{
    if (!drv_class_registered(cls) || name == nullptr || name[0] == '\0' ||
        std::strlen(name) >= DRV_NAME_MAX)
        return nullptr;
    const bool has_path = path != nullptr && path[0] != '\0';
    if (has_path && (std::strlen(path) >= DRV_PATH_MAX ||
                     !g_drv_probe.load(std::memory_order_relaxed)(path)))
        return nullptr;

    std::lock_guard<std::mutex> guard(g_drv_lock);
    drv_device_t* dev = find_locked(name);
    if (dev == nullptr) {
        if (g_drv_device_count >= DRV_DEVICE_MAX)
            return nullptr;
        dev = &g_drv_devices[g_drv_device_count++];
    }
    *dev = drv_device_t{};
    dev->cls = cls;
    std::memcpy(dev->name.data(), name, std::strlen(name) + 1);
    if (has_path)
        std::memcpy(dev->path.data(), path, std::strlen(path) + 1);
    dev->variant = variant;
    dev->variant2 = variant2;
    return dev;
}

drv_device_t* drv_device_find(const char* name)
{
    if (name == nullptr)
        return nullptr;
    std::lock_guard<std::mutex> guard(g_drv_lock);
    return find_locked(name);
}

int drv_device_count()
{
    std::lock_guard<std::mutex> guard(g_drv_lock);
    return g_drv_device_count;
}

drv_device_t* drv_device_at(int idx)
{
    std::lock_guard<std::mutex> guard(g_drv_lock);
    return idx >= 0 && idx < g_drv_device_count ? &g_drv_devices[idx] : nullptr;
}

void drv_set_path_probe(drv_path_probe probe)
{
    g_drv_probe.store(probe != nullptr ? probe : path_exists, std::memory_order_relaxed);
}

int drv_registration_log(drv_class* out, int max)
{
    std::lock_guard<std::mutex> guard(g_drv_lock);
    const int n = g_drv_reg_count < max ? g_drv_reg_count : max;
    for (int i = 0; i < n; ++i)
        out[i] = g_drv_reg_log[i];
    return n;
}
