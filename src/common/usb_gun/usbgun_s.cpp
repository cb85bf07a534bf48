#include "common/usb_gun/usbgun_s.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>

#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_s_internal.h"
#include "common/usb_gun/usblog.h"
#include "common/worker_thread.h"

Server_Ctrl_t::Server_Ctrl_t()
{
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_NORMAL);
    mutex_init_rc = pthread_mutex_init(&mutex_server, &attr);
    pthread_mutexattr_destroy(&attr);
}

Server_Ctrl_t usbgun_srv;

namespace {

class ServerLock {
public:
    ServerLock() { pthread_mutex_lock(&usbgun_srv.mutex_server); }
    ~ServerLock() { pthread_mutex_unlock(&usbgun_srv.mutex_server); }
    ServerLock(const ServerLock&) = delete;
    ServerLock& operator=(const ServerLock&) = delete;
};

// Copies a record's payload into its field, and dumps the record.
template <typename T>
void store_payload(T* field, int p, std::size_t payload)
{
    std::memcpy(field, usbgun_srv.buf + p + UNX_HEAD_SIZE, payload);
    usblog_log_dumpdata(usbgun_srv.buf + p, static_cast<int>(UNX_HEAD_SIZE + payload));
}

void dispatch(int p, const Unx_Head_t& head)
{
    // The payload a known record is copied from, from p + 12: its length
    // field is not checked against it.
    std::size_t payload = 0;
    switch (head.func_index) {
    case UsbGunDataTypeSetFun: payload = sizeof usbgun_srv.config.datType; break;
    case UsbGunRouteInfoSetFun: payload = sizeof usbgun_srv.routeinfo; break;
    case UsbGunNameSetFun: payload = sizeof usbgun_srv.config.confName; break;
    default: break;
    }
    if (static_cast<std::size_t>(p) + UNX_HEAD_SIZE + payload > UNX_BUF_SIZE) {
        USBLOG("Record at %d runs past the receive buffer, dropped.\r\n", p);
        return;
    }
    switch (head.func_index) {
    case UsbGunDataTypeSetFun: store_payload(&usbgun_srv.config.datType, p, payload); break;
    case UsbGunRouteInfoSetFun: store_payload(&usbgun_srv.routeinfo, p, payload); break;
    case UsbGunNameSetFun: store_payload(&usbgun_srv.config.confName, p, payload); break;
    default: USBLOG("Unknow function index...\r\n"); break;
    }
    if (usbgun_srv.cb.fn != nullptr)
        usbgun_srv.cb.fn(static_cast<int>(head.func_index));
}

void* UsbConfigTranThread(void*)
{
    for (;;) {
        pthread_mutex_lock(&usbgun_srv.mutex_server);
        const ssize_t got = unix_socket_read(usbgun_srv.unx_fd.load(std::memory_order_relaxed),
                                             usbgun_srv.buf + usbgun_srv.held, UNX_BUF_SIZE - usbgun_srv.held, 5);
        // After garbage or a split head the service goes back to the top with
        // the lock still held, as it always has: the mutex is of kind
        // PTHREAD_MUTEX_NORMAL, whose relock by its owner is defined to
        // deadlock, so this thread stops serving there for good (and every
        // writer of the service waits with it). Never a default mutex, whose
        // relock is undefined.
        if (usbgun_config_take(got) == config_next::keep_locked)
            continue;
        pthread_mutex_unlock(&usbgun_srv.mutex_server);
        usleep(100000);
    }
    return nullptr;
}

// Makes fd the client served. A new client replaces the old one, and the
// old connection is closed (it is still not told): left open, every
// reconnect of a client program leaked a descriptor until accept failed
// everywhere in the process. The swap and the close happen under
// mutex_server, which every use of the client descriptor holds, so no
// writer or read can meet a closed or reused number.
void take_client(int fd)
{
    // Each write to the client is bounded: a client that never reads makes
    // a write time out after about a second (a short or failed write, -2)
    // instead of holding mutex_server, and with it the whole service, for
    // good.
    const timeval send_timeout{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
    ServerLock lock;
    const int old = usbgun_srv.unx_fd.exchange(fd, std::memory_order_acq_rel);
    usbgun_srv.held = 0;  // a record begun by the old client is not the new one's
    if (old > 0 && old != fd)
        close(old);
}

// Logs a failed accept of the scanner listener, one line a second at most.
void accept_failed(AcceptFailures& failures, int err)
{
    if (const unsigned n = failures.note(err))
        USBLOG("Accept unix client is error:%s(errno: %d), %u times.\r\n", std::strerror(err), err, n);
}

void* UnixAcceptThread(void*)
{
    sleep(2);
    AcceptFailures failures;
    for (;;) {
        // Every client queued meanwhile is taken in turn, so the newest is
        // served and those before it are closed, not left in the queue.
        do {
            const int fd = unix_server_accept(usbgun_srv.unx_ser_fd);
            if (fd < 0) {
                accept_failed(failures, errno);
                break;
            }
            take_client(fd);
            USBLOG("Usb scan unix client connected...\r\n");
        } while (unix_socket_wait(usbgun_srv.unx_ser_fd, 0) > 0);
        usleep(400000);
    }
    return nullptr;
}

int wait_for_first_client()
{
    AcceptFailures failures;
    for (;;) {
        // A new listening socket each attempt; the one before is closed
        // first (its bind, listen or accept failed).
        unix_socket_close(usbgun_srv.unx_ser_fd);
        usbgun_srv.unx_ser_fd = 0;
        const int ser = unix_server_open(SCANNER_SOCKET_PATH);
        if (ser > 0) {
            usbgun_srv.unx_ser_fd = ser;
            const int fd = unix_server_accept(ser);
            if (fd > 0)
                return fd;
            if (fd < 0)
                accept_failed(failures, errno);
        }
        usleep(100000);
    }
}

}  // namespace

config_next usbgun_config_take(ssize_t got)
{
    Server_Ctrl_t& s = usbgun_srv;
    const int total = s.held + static_cast<int>(std::max<ssize_t>(got, 0));
    if (total <= static_cast<int>(UNX_HEAD_SIZE)) {
        if (got >= 1)
            s.held = total;
        return config_next::unlock;
    }
    const int p = find_unx_flag(s.buf, total - 4);
    if (p < 0) {
        s.held = 0;
        return config_next::keep_locked;
    }
    if (total - p < static_cast<int>(UNX_HEAD_SIZE)) {
        s.held = total;
        return config_next::keep_locked;
    }
    const Unx_Head_t head = read_unx_head(s.buf + p);
    const uint32_t after_head = static_cast<uint32_t>(total) - UNX_HEAD_SIZE;
    if (after_head < head.length) {
        s.held = total;
        return config_next::unlock;
    }
    dispatch(p, head);
    s.held = keep_after_record(s.buf, total, head.length);
    if (s.held > 0)
        std::memset(s.buf + s.held, 0, UNX_BUF_SIZE - s.held);
    return config_next::unlock;
}

int UsbScanGunSrvInit(UsbConfCb_t cb)
{
    Server_Ctrl_t& s = usbgun_srv;
    s.unx_ser_fd = 0;
    s.unx_fd.store(0);
    s.cb = cb;
    s.config = {};
    s.routeinfo = {};
    std::memset(s.buf, 0, sizeof s.buf);
    s.held = 0;

    const int fd = wait_for_first_client();
    USBLOG("Usb scan unix client connected...\r\n");

    if (s.mutex_init_rc != 0) {
        USBLOG("MUTEX_INIT error:%s(errno: %d)\r\n", std::strerror(s.mutex_init_rc), s.mutex_init_rc);
        return -1;
    }
    // Published once the lock exists: the writers look at it first.
    take_client(fd);
    int err = start_worker_thread(UsbConfigTranThread, nullptr, &s.pthread_config);
    if (err != 0) {
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(err), err);
        return -2;
    }
    err = start_worker_thread(UnixAcceptThread, nullptr, &s.pthread_accept);
    if (err != 0) {
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(err), err);
        return -3;
    }
    return 0;
}

namespace {

// Writes one record whose bytes fill() puts into a buffer of size bytes.
// 1 written, 0 no client, -1 out of memory, -2 short write.
template <typename Fill>
int write_record(std::size_t size, Fill fill)
{
    if (usbgun_srv.unx_fd.load(std::memory_order_acquire) <= 0) {
        USBLOG("unx socket handle not init.\r\n");
        return 0;
    }
    std::unique_ptr<uint8_t[]> rec(new (std::nothrow) uint8_t[size]);
    if (rec == nullptr) {
        USBLOG("Malloc memory is failure.\r\n");
        return -1;
    }
    fill(rec.get());
    ServerLock lock;
    // Bounded by the client's send time-out; a client gone gives EPIPE, not
    // a signal.
    const ssize_t n = unix_socket_send(usbgun_srv.unx_fd.load(std::memory_order_relaxed), rec.get(), size);
    return n == static_cast<ssize_t>(size) ? 1 : -2;
}

}  // namespace

int UsbScanGunWriteData(int slot, int datatype, const uint8_t* data, unsigned len)
{
    if ((data == nullptr && len != 0) || len > INT_MAX - UNX_HEAD_SIZE - SCAN_HEAD_SIZE) {
        USBLOG("Scan data of %u bytes refused.\r\n", len);
        return -1;
    }
    const std::size_t size = UNX_HEAD_SIZE + SCAN_HEAD_SIZE + len;
    const int rc = write_record(size, [&](uint8_t* out) {
        const Unx_Head_t unx{UNX_HEAD_FLAG, UsbGunReadFun, static_cast<uint32_t>(SCAN_HEAD_SIZE + len)};
        const UsbGunDatHead_t head = make_scan_head(slot, datatype, data, len);
        std::memcpy(out, &unx, sizeof unx);
        std::memcpy(out + UNX_HEAD_SIZE, &head, sizeof head);
        if (len != 0)
            std::memcpy(out + UNX_HEAD_SIZE + SCAN_HEAD_SIZE, data, len);
    });
    if (rc == -2)
        USBLOG("unix_socket write is failure.\r\n");
    if (rc != 1)
        return rc;
    USBLOG("ScanData write screenslot:%d, datetype:%d data len:%d, real len:%d...\r\n", slot, datatype,
           static_cast<int>(len), static_cast<int>(size));
    return static_cast<int>(size);
}

int UsbDevInfoWriteData(const uint8_t* data, int len)
{
    if (len < 0 || (data == nullptr && len != 0) || len > INT_MAX - static_cast<int>(UNX_HEAD_SIZE)) {
        USBLOG("Device list of %d bytes refused.\r\n", len);
        return -1;
    }
    const std::size_t size = UNX_HEAD_SIZE + static_cast<std::size_t>(len);
    const int rc = write_record(
        size, [&](uint8_t* out) { put_unx_record(out, UsbDevInfoGetFun, data, static_cast<uint32_t>(len)); });
    if (rc == -2)
        USBLOG("Unix_socket write is failure.\r\n");
    if (rc != 1)
        return rc;
    USBLOG("DevInfo write data len:%d, real len:%d...\r\n", len, static_cast<int>(size));
    return 0;
}

namespace {

template <typename T>
int copy_out(T* out, const T& stored)
{
    if (out == nullptr)
        return -1;
    ServerLock lock;
    *out = stored;
    return 0;
}

}  // namespace

int UsbScanGunGetRouteInfo(ScanGunRouteInfo_t* route)
{
    return copy_out(route, usbgun_srv.routeinfo);
}

int UsbScanGunGetDataType(int* datatype)
{
    return copy_out(datatype, usbgun_srv.config.datType);
}

int UsbScanGunGetConfDesc(ScanGunConfigName_t* name)
{
    return copy_out(name, usbgun_srv.config.confName);
}
