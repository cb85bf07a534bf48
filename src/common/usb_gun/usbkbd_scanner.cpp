#include "common/usb_gun/usbkbd_scanner.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "common/usb_gun/usbinfo.h"
#include "common/usb_gun/usbkbd_scanner_internal.h"
#include "common/usb_gun/usblog.h"
#include "common/worker_thread.h"

UsbKbdCtrl_t usbkbd_ctrl;

namespace {

void clear_slot(UsbScanGunKbd_t& slot)
{
    if (slot.h_evt > 0)
        close(slot.h_evt);
    std::memset(&slot, 0, sizeof slot);
}

void* DetectKbdScanGunDevThread(void*)
{
    unsigned cursor = 0;
    for (;;)
        usbkbd_reader_pass(&cursor);
    return nullptr;
}

}  // namespace

void usbkbd_reader_pass(unsigned* cursor)
{
    {
        std::lock_guard<std::mutex> guard(usbkbd_ctrl.mutex_kbd);
        UsbScanGunKbd_t& slot = usbkbd_ctrl.kbd[*cursor % KBD_SCAN_SLOTS];
        if (slot.bOn == 0) {
            clear_slot(slot);
            usleep(10000);
            ++*cursor;
        } else {
            const char* dir = AddupEventTotal("/dev") > 0 ? "/dev" : "/dev/input";
            std::snprintf(slot.event, sizeof slot.event, "%s/event%d", dir, slot.index);
            if (access(slot.event, F_OK) != 0) {
                // Unplugged: the declaration goes with it.
                clear_slot(slot);
            } else if (slot.bInit == 0) {
                // A failed open is not retried while the node exists.
                slot.h_evt = open(slot.event, O_RDWR | O_NONBLOCK);
                slot.bInit = 1;
                USBLOG("%s starting...\r\n", slot.event);
            } else {
                // A descriptor that failed to open is left out of the wait,
                // which then simply times out.
                pollfd p{slot.h_evt > 0 ? slot.h_evt : -1, POLLIN, 0};
                if (poll(&p, 1, 1000) > 0 && (p.revents & POLLIN) != 0) {
                    std::memset(slot.data, 0, sizeof slot.data);
                    const ssize_t n = read(slot.h_evt, slot.data, sizeof slot.data);
                    if (n >= 1 && usbkbd_ctrl.cb.fn != nullptr)
                        usbkbd_ctrl.cb.fn(slot.data, static_cast<int>(n));
                }
            }
        }
    }
    usleep(1000);
}

int UsbKbdScanGunSetEvtIndex(int event_index, bool bOn)
{
    {
        std::lock_guard<std::mutex> guard(usbkbd_ctrl.mutex_kbd);
        UsbScanGunKbd_t* stop = nullptr;
        bool found = false;
        for (UsbScanGunKbd_t& slot : usbkbd_ctrl.kbd) {
            if (slot.bOn != 0 && slot.index == event_index) {
                stop = &slot;
                found = true;
                break;
            }
            if (slot.bOn == 0 && bOn) {
                stop = &slot;
                break;
            }
        }
        if (stop != nullptr && !found) {
            stop->index = event_index;
            stop->bOn = 1;
        } else if (found && !bOn) {
            stop->bOn = 0;  // the reader closes and clears it
        }
    }
    USBLOG("Set event%d as %s ScanGun device success...\r\n", event_index, bOn ? "" : "NOT");
    return 0;
}

int UsbKbdScanGun_Init(UsbScanGunCb_t cb)
{
    {
        std::lock_guard<std::mutex> guard(usbkbd_ctrl.mutex_kbd);
        for (UsbScanGunKbd_t& slot : usbkbd_ctrl.kbd)
            clear_slot(slot);
        usbkbd_ctrl.cb = cb;
        usbkbd_ctrl.scan_gun_total = 0;
    }
    // mutex_kbd is a std::mutex, whose set-up cannot fail.
    const int rc = start_worker_thread(DetectKbdScanGunDevThread, nullptr, &usbkbd_ctrl.thread);
    if (rc != 0) {
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(rc), rc);
        return -2;
    }
    USBLOG("Usb Kbd ScanGun Initation success...\r\n");
    return 0;
}
