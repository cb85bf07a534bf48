// CDC reader internals visible to its tests.
#pragma once

#include <pthread.h>

#include <array>
#include <cstdint>

#include "common/usb_gun/usbcdc_scanner.h"

inline constexpr int CDC_SCAN_PORTS = 4;
inline constexpr const char* CDC_TTY_PREFIX = "/dev/ttyACM";

struct Tty_Ctrl_t {
    uint8_t b_init;              // the port is open and configured
    int h_tty;                   // open descriptor, 0 when closed
    uint8_t data[UNX_BUF_SIZE];  // read buffer
};

// Belongs to the reader thread alone.
struct UsbCdcCtrl_t {
    pthread_t thread{};
    UsbScanGunCb_t cb{};
    std::array<Tty_Ctrl_t, CDC_SCAN_PORTS> ttyctrl{};
};
extern UsbCdcCtrl_t usbcdc_ctrl;

// One pass of the reader thread on port *cursor % 4: opens and configures a
// port that appeared, reads it once (blocking), or takes it down when the
// read fails. The cursor moves on only from a port that does not exist.
void usbcdc_reader_pass(unsigned* cursor);
