// Socket-server internals visible to its tests and fuzz target.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>

#include "common/usb_gun/usbgun_s.h"

struct Server_Ctrl_t {
    Server_Ctrl_t();  // sets up mutex_server
    Server_Ctrl_t(const Server_Ctrl_t&) = delete;
    Server_Ctrl_t& operator=(const Server_Ctrl_t&) = delete;

    int unx_ser_fd = 0;            // listening socket
    std::atomic<int> unx_fd{0};    // the newest client, 0 = none
    pthread_t pthread_config{};    // UsbConfigTranThread
    pthread_t pthread_accept{};    // UnixAcceptThread
    // Guards unx_fd's changes, buf, held and the stored configuration; held
    // by the writers for a whole record and by the configuration thread for
    // each read. A PTHREAD_MUTEX_NORMAL mutex (see UsbConfigTranThread).
    // Set up with the process, so that a writer or getter called before the
    // first client never meets it uninitialised; mutex_init_rc keeps the
    // result for UsbScanGunSrvInit to report.
    pthread_mutex_t mutex_server;
    int mutex_init_rc = 0;
    UsbConfCb_t cb{};
    ScanGunConf_t config{};
    ScanGunRouteInfo_t routeinfo{};
    uint8_t buf[UNX_BUF_SIZE];
    int held = 0;  // bytes kept at the start of buf
};
extern Server_Ctrl_t usbgun_srv;

// What the configuration thread does after taking a read.
enum class config_next {
    unlock,       // release the lock, pause, read again
    keep_locked,  // garbage or a split head: back to the lock, still holding it
};

// The configuration thread's work on got bytes just read into buf + held (got
// <= 0: nothing came): reassembles, applies and reports the records. Called
// with mutex_server held (the fuzz target calls it alone).
config_next usbgun_config_take(ssize_t got);
