// Keyboard-wedge reader internals visible to its tests.
#pragma once

#include <pthread.h>

#include <array>
#include <cstdint>
#include <mutex>

#include "common/usb_gun/usbkbd_scanner.h"

inline constexpr int KBD_SCAN_SLOTS = 4;
inline constexpr int KBD_PATH_LEN = 64;

struct UsbScanGunKbd_t {
    int h_evt;                  // open descriptor, 0 when closed
    int index;                  // event number N
    uint8_t bOn;                // a declared scanner
    uint8_t bInit;              // the node has been opened
    char event[KBD_PATH_LEN];   // the node's path
    uint8_t data[UNX_BUF_SIZE]; // read buffer
};

struct UsbKbdCtrl_t {
    pthread_t thread{};
    // Guards kbd between the reader thread (which also calls cb with it
    // held) and the declarations.
    std::mutex mutex_kbd;
    UsbScanGunCb_t cb{};
    int scan_gun_total = 0;  // kept by nothing
    std::array<UsbScanGunKbd_t, KBD_SCAN_SLOTS> kbd{};
};
extern UsbKbdCtrl_t usbkbd_ctrl;

// One pass of the reader thread over slot *cursor % 4; the cursor moves on
// only from a slot that is not a declared scanner.
void usbkbd_reader_pass(unsigned* cursor);
