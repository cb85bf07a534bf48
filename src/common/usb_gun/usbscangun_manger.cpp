#include "common/usb_gun/usbscangun_manger.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "common/usb_gun/usbcdc_scanner.h"
#include "common/usb_gun/usbcomm.h"
#include "common/usb_gun/usbgun_s.h"
#include "common/usb_gun/usbinfo.h"
#include "common/usb_gun/usbkbd_scanner.h"
#include "common/usb_gun/usblog.h"
#include "common/usb_gun/usbscangun_manger_internal.h"
#include "common/worker_thread.h"

ScanGunServerManger_t usbscangun_mgr;

namespace {

pthread_t start_thread{};  // UsbScanGunThread

}  // namespace

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
    if (take(m.DatTypeSetEvt)) {
        UsbScanGunGetDataType(&m.conf.datType);
        UsbScanGunSetIpcCodeType(m.conf.datType);
    }
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

namespace {

// Where a scan of datatype goes: the client for screens 0 and 1, the remote
// screen for 2.
int write_to_screen(unsigned screen, int datatype, const uint8_t* data, int len)
{
    switch (screen) {
    case eScreenMain:
    case eScreenSecondray:
        return UsbScanGunWriteData(static_cast<int>(screen), datatype, data, static_cast<unsigned>(len));
    case eScreenOrvel: return UsbScanGunWriteIpcData(datatype, data, static_cast<unsigned>(len));
    default:
        USBLOG("%d screen type not Support...\r\n", static_cast<int>(screen));
        return -1;
    }
}

int route_scan(int datatype, const uint8_t* data, int len)
{
    // The readers hand on what they read (at least one byte); anything else
    // is refused here rather than turned into a huge unsigned length.
    if (len < 0 || (data == nullptr && len != 0)) {
        USBLOG("Scan data of %d bytes refused.\r\n", len);
        return -1;
    }
    const ScanGunRoute_t& route = usbscangun_mgr.routeinfo;
    const int mode = route.nRouteMode.load(std::memory_order_relaxed);
    switch (mode) {
    case eModeFocus: return write_to_screen(static_cast<unsigned>(GetScreenFocusLocation()), datatype, data, len);
    case eModeFixed:
        return write_to_screen(static_cast<unsigned>(route.nFixedScreenID.load(std::memory_order_relaxed)), datatype,
                               data, len);
    default:
        USBLOG("%d mode Not support\r\n", mode);
        return -1;
    }
}

}  // namespace

int UsbScanGunKbdWriteData(uint8_t* data, int len)
{
    return route_scan(eKbdData, data, len);
}

int UsbScanGunCdcWriteData(uint8_t* data, int len)
{
    return route_scan(eCdcData, data, len);
}

void usbscangun_mgr_reset()
{
    ScanGunServerManger_t& m = usbscangun_mgr;
    m.thread = {};
    m.NameSetEvt.store(0);
    m.DatTypeSetEvt.store(0);
    m.RouteInfoSetEvt.store(0);
    m.conf = {};
    m.routeinfo.nRouteMode.store(eModeFocus);
    m.routeinfo.nFixedScreenID.store(eScreenMain);
}

void* UsbScanGunThread(void*)
{
    usbscangun_mgr_reset();
    // The results of the four starts are not looked at: each success line is
    // written whatever came of it. The first waits for a client.
    UsbScanGunSrvInit({UsbScanGunConfEvent, nullptr});
    USBLOG("Socket server initation success...\r\n");
    UsbDevInfoInit({UsbScanDevInfoUpdate, nullptr});
    USBLOG("Usb devinfo initation success...\r\n");
    UsbCdcScanGun_init({UsbScanGunCdcWriteData, nullptr});
    USBLOG("Usb cdc scan initation success...\r\n");
    UsbKbdScanGun_Init({UsbScanGunKbdWriteData, nullptr});
    USBLOG("Usb kbd scan initation success...\r\n");
    const int err = start_worker_thread(UsbScanGunServerThread, nullptr, &usbscangun_mgr.thread);
    if (err != 0)
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(err), err);
    else
        USBLOG("Create scanserver thread success...\r\n");
    for (;;)
        sleep(10);
    return nullptr;
}

int UsbScanGunInit()
{
    usblog_init_log(SCANNER_LOG_PATH);
    const int err = start_worker_thread(UsbScanGunThread, nullptr, &start_thread);
    if (err != 0)
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(err), err);
    return err;
}
