#include "common/usb_gun/usbcomm.h"

#include <climits>
#include <cstring>
#include <memory>
#include <new>

#include "arm/hot_plug.h"
#include "common/OrvelClient.h"
#include "common/inputevent_handle.h"
#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usblog.h"

int AddEventToTactord(int event_index)
{
    return ADEventToTactord(event_index);
}

int RemoveEventFromTactord(int event_index)
{
    return RMEventFromTactord(event_index);
}

int GetScreenFocusLocation()
{
    return GetFocusScreen();
}

int UsbScanGunSetIpcCodeType(int type)
{
    return setIpcScanGunDataCodeType(type);
}

int UsbScanGunWriteIpcData(int datatype, const uint8_t* data, unsigned len)
{
    // The remote-screen frame adds its own 24 bytes and reports its length
    // as an int: a scan too long for that cannot be had, like memory that
    // runs out. A null pointer only goes with an empty scan.
    constexpr unsigned MAX_SCAN = INT_MAX - 2 * SCAN_HEAD_SIZE;
    std::unique_ptr<uint8_t[]> buf;
    if (len <= MAX_SCAN && (data != nullptr || len == 0))
        buf.reset(new (std::nothrow) uint8_t[SCAN_HEAD_SIZE + len]);
    if (buf == nullptr) {
        USBLOG("Malloc memory is failure.\r\n");
        return -1;
    }
    const UsbGunDatHead_t head = make_scan_head(eScreenOrvel, datatype, data, len);
    std::memcpy(buf.get(), &head, sizeof head);
    if (len != 0)
        std::memcpy(buf.get() + SCAN_HEAD_SIZE, data, len);
    const int sent = sendIpcScanGunData(buf.get(), static_cast<unsigned>(SCAN_HEAD_SIZE + len));
    USBLOG("Ipc write datatye:%d, data len:%d, real len:%d...\r\n", datatype, static_cast<int>(len), sent);
    return sent;
}
