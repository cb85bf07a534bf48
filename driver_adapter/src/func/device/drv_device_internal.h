// Test seams of the device registry.
#pragma once

#include "func/device/drv_device.h"

// Replaces the check that a device path exists (null restores it).
using drv_path_probe = bool (*)(const char* path);
void drv_set_path_probe(drv_path_probe probe);

// Class registrations in call order, repeats included (the first
// DRV_REGISTRATION_LOG_MAX are kept).
inline constexpr int DRV_REGISTRATION_LOG_MAX = 64;
int drv_registration_log(drv_class* out, int max);
