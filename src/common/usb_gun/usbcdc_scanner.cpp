#include "common/usb_gun/usbcdc_scanner.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/usb_gun/usbcdc_scanner_internal.h"
#include "common/usb_gun/usblog.h"
#include "common/worker_thread.h"

UsbCdcCtrl_t usbcdc_ctrl;

namespace {

// 8N1 raw, no flow control, no echo; only the output speed is set (9600),
// the input speed stays as the port had it.
// The scanner's bytes are handed on unchanged, so the input side is raw as
// well: no CR/LF translation (a port left with ICRNL turned "\r\n" into
// "\n\n"), no XON/XOFF, no stripping or break handling; parity errors are
// still ignored. Reads return as soon as one byte is there.
void configure_port(int fd)
{
    termios tio{};
    tcgetattr(fd, &tio);
    tio.c_iflag &= ~(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IUCLC | IXON | IXOFF | IXANY);
    tio.c_iflag |= IGNPAR;
    tio.c_oflag = 0;
    tio.c_lflag = 0;
    tio.c_cc[VMIN] = 1;
    tio.c_cc[VTIME] = 0;
    tio.c_cflag &= ~(CSTOPB | CSIZE | CRTSCTS);
    tio.c_cflag |= CS8 | CREAD | CLOCAL;
    cfsetospeed(&tio, B9600);
    tcflush(fd, TCIFLUSH);
    tcsetattr(fd, TCSANOW, &tio);
}

void* DetectCdcScanGunDevThread(void*)
{
    unsigned cursor = 0;
    for (;;)
        usbcdc_reader_pass(&cursor);
    return nullptr;
}

}  // namespace

void usbcdc_reader_pass(unsigned* cursor)
{
    const int port = static_cast<int>(*cursor % CDC_SCAN_PORTS);
    Tty_Ctrl_t& tty = usbcdc_ctrl.ttyctrl[port];
    char path[64];
    std::snprintf(path, sizeof path, "%s%d", CDC_TTY_PREFIX, port);
    if (access(path, F_OK) != 0) {
        tty.h_tty = 0;
        tty.b_init = 0;
        usleep(100000);
        ++*cursor;
        return;
    }
    if (tty.h_tty <= 0 && tty.b_init == 0) {
        // A port that cannot be opened is marked all the same: its reads
        // fail at once and it is taken down below.
        // Never as the controlling terminal: a daemon that is a session
        // leader (under a supervisor) would otherwise get the port as its
        // terminal, and the scanner's unplug would hang it up with a SIGHUP
        // that ends the process.
        tty.h_tty = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (tty.h_tty > 0)
            configure_port(tty.h_tty);
        USBLOG("Usb Cdc ScanGun %s is plugin...\r\n", path);
        tty.b_init = 1;
    }
    std::memset(tty.data, 0, sizeof tty.data);
    const ssize_t n = read(tty.h_tty, tty.data, sizeof tty.data);
    if (n >= 1) {
        if (usbcdc_ctrl.cb.fn != nullptr)
            usbcdc_ctrl.cb.fn(tty.data, static_cast<int>(n));
        return;
    }
    // The scanner was unplugged: close the port, remove its node, and give
    // the device time to settle before the port is probed again.
    usleep(100000);
    if (tty.h_tty > 0)
        close(tty.h_tty);
    tty.h_tty = 0;
    tty.b_init = 0;
    usleep(400000);
    USBLOG("Usb Cdc ScanGun %s is plugout...\r\n", path);
    char command[64];
    std::snprintf(command, sizeof command, "rm -rf %s%d", CDC_TTY_PREFIX, port);
    SystemExec(command);
    usleep(3500000);
}

int SystemExec(const char* command)
{
    return std::system(command);
}

int UsbCdcScanGun_init(UsbScanGunCb_t cb)
{
    for (Tty_Ctrl_t& tty : usbcdc_ctrl.ttyctrl) {
        if (tty.h_tty > 0)
            close(tty.h_tty);
        tty.h_tty = 0;
        tty.b_init = 0;
    }
    usbcdc_ctrl.cb = cb;
    const int rc = start_worker_thread(DetectCdcScanGunDevThread, nullptr, &usbcdc_ctrl.thread);
    if (rc != 0) {
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(rc), rc);
        return -1;
    }
    USBLOG("Usb Cdc ScanGun initation success...\r\n");
    return 0;
}
