// Client-library internals visible to its tests and fuzz target.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

#include "common/usb_gun/usbgun_records.h"

inline constexpr const char* SCAN_CLIENT_LOG_PATH = "/tmp/scan-client.txt";
inline constexpr int RING_SIZE = static_cast<int>(UNX_BUF_SIZE);

// The scans received, each a scan head and its bytes, back to back.
struct RingBuffer_t {
    int32_t pIn;   // write position
    int32_t pOut;  // read position
    uint8_t data[RING_SIZE];
};

int ring_filled(const RingBuffer_t& rb);
int ring_free(const RingBuffer_t& rb);
// Copies len (< RING_SIZE) bytes in at pIn, wrapping at the end. Only a
// full ring refuses (false): a record longer than the free space overwrites
// bytes not yet read, as the library always has.
bool ring_put(RingBuffer_t& rb, const uint8_t* data, uint32_t len);

// What the client program configured last: a daemon the receiver reaches
// again after it went away (restarted, so knowing nothing of it) is given
// it again.
struct ClientConf {
    static constexpr int MAX_NAMES = 8;
    std::array<ScanGunConfigName_t, MAX_NAMES> names{};  // the last bOn of each name, oldest first
    int name_count = 0;
    bool datatype_set = false;
    int32_t datatype = 0;
    bool route_set = false;
    ScanGunRouteInfo_t route{};
};

struct Client_Ctrl_t {
    // The connection: 0 before UsbGunInit connected, -1 while the receiver
    // connects again after the daemon went away. Changed by the receiver
    // (after UsbGunInit) under mutex_client.
    std::atomic<int> unx_fd{0};
    pthread_t thread{};
    // Guards writes to the connection, rb, usbinfo and conf.
    std::mutex mutex_client;
    UsbInfoCb_t cb{};
    UsbDevInfo_t usbinfo{};
    RingBuffer_t rb{};
    ClientConf conf{};
    uint8_t buf[UNX_BUF_SIZE];  // the receiver's, with held bytes kept at the start
    int held = 0;
};
extern Client_Ctrl_t usbgun_client;

// The receiver's work on got bytes just read into buf + held (got <= 0:
// nothing came): reassembles the records and takes each in.
void usbgun_c_take(ssize_t got);

// Pause between two attempts to reach a daemon that went away, and between
// two configuration records given to it again once reached (the service
// applies one record of a kind every 100 ms).
inline constexpr unsigned RECONNECT_PAUSE_US = 500000;
inline constexpr unsigned REPLAY_PAUSE_US = 250000;
// One pass of the receiver: waits up to 200 ms for bytes and takes them in.
// At the connection's end (or a failed read) it closes the connection, marks
// it lost and returns; while lost, it pauses and tries to connect again, and
// once connected sends the stored configuration again.
void usbgun_c_receive_pass();
