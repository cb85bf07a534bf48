#include "common/usb_gun/usbscangun_manger.h"

#include <unistd.h>

#include <algorithm>

#include "common/usb_gun/usbcomm.h"
#include "common/usb_gun/usbgun_s.h"
#include "common/usb_gun/usbinfo.h"
#include "common/usb_gun/usbkbd_scanner.h"
#include "common/usb_gun/usblog.h"
#include "common/usb_gun/usbscangun_manger_internal.h"

ScanGunServerManger_t usbscangun_mgr;

int UsbScanGunConfEvent(int func_index)
{
    switch (func_index) {
    case UsbGunDataTypeSetFun:
        usbscangun_mgr.DatTypeSetEvt.store(1, std::memory_order_relaxed);
        USBLOG("UsbGunDataTypeSetFun event comming...\r\n");
        break;
    case UsbGunRouteInfoSetFun:
        usbscangun_mgr.RouteInfoSetEvt.store(1, std::memory_order_relaxed);
        USBLOG("UsbGunRouteInfoSetFun event comming...\r\n");
        break;
    case UsbGunNameSetFun:
        usbscangun_mgr.NameSetEvt.store(1, std::memory_order_relaxed);
        USBLOG("UsbGunNameSetFun event comming...\r\n");
        break;
    default: break;
    }
    return 0;
}

int UsbScanDevInfoUpdate(uint8_t* data, int len)
{
    return UsbDevInfoWriteData(data, len);
}

namespace {

// Declares the devices of the client's name record scanners (index 1) or
// ordinary input devices again (index 0).
void apply_name()
{
    ScanGunConfigName_t& named = usbscangun_mgr.conf.confName;
    UsbScanGunGetConfDesc(&named);
    named.name[sizeof named.name - 1] = '\0';  // the client's text need not end
    KbScanSupportInfo_t found{};
    if (UsbDevSerachIndex(named.name, &found) != 0)
        return;
    for (int i = 0; i < std::min(found.count, KB_SCAN_MAX_EVT); ++i) {
        const int event = found.h_evt[i];
        if (named.index == 0) {
            AddEventToTactord(event);
            UsbKbdScanGunSetEvtIndex(event, false);
        } else if (named.index == 1) {
            RemoveEventFromTactord(event);
            UsbKbdScanGunSetEvtIndex(event, true);
        }
    }
}

bool take(std::atomic<uint8_t>& flag)
{
    return flag.exchange(0, std::memory_order_relaxed) != 0;
}

}  // namespace

void usbscangun_apply_pending()
{
    ScanGunServerManger_t& m = usbscangun_mgr;
    // The data type is kept here; announcing it to the remote screen goes
    // with the remote-screen client's scanner entry.
    if (take(m.DatTypeSetEvt))
        UsbScanGunGetDataType(&m.conf.datType);
    if (take(m.NameSetEvt))
        apply_name();
    if (take(m.RouteInfoSetEvt)) {
        ScanGunRouteInfo_t route{};
        UsbScanGunGetRouteInfo(&route);
        m.routeinfo.nRouteMode.store(route.nRouteMode, std::memory_order_relaxed);
        m.routeinfo.nFixedScreenID.store(route.nFixedScreenID, std::memory_order_relaxed);
    }
}

void* UsbScanGunServerThread(void*)
{
    for (;;) {
        usbscangun_apply_pending();
        usleep(100000);
    }
    return nullptr;
}
