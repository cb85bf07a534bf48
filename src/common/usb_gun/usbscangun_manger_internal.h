// Manager internals visible to its tests.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usbscangun_manger.h"

// The route the scans follow; read by the routing without a lock.
struct ScanGunRoute_t {
    std::atomic<int32_t> nRouteMode{eModeFocus};
    std::atomic<int32_t> nFixedScreenID{eScreenMain};
};

struct ScanGunServerManger_t {
    pthread_t thread{};  // UsbScanGunServerThread
    // Set by the configuration thread, taken by the applier thread: a race
    // the service tolerates (relaxed).
    std::atomic<uint8_t> NameSetEvt{0};
    std::atomic<uint8_t> DatTypeSetEvt{0};
    std::atomic<uint8_t> RouteInfoSetEvt{0};
    ScanGunConf_t conf{};  // the applier thread's own copy
    ScanGunRoute_t routeinfo;
};
extern ScanGunServerManger_t usbscangun_mgr;

// Back to the state of a fresh process: no record pending, focus routing.
void usbscangun_mgr_reset();
// The start thread: server (waits for the first client), inventory, CDC and
// wedge readers, the applier thread; then idles.
void* UsbScanGunThread(void* arg);

// One poll of the applier: takes each marked record and applies it.
void usbscangun_apply_pending();
// The applier thread: polls every 100 ms, for ever.
void* UsbScanGunServerThread(void* arg);
