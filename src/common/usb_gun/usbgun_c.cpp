#include "common/usb_gun/usbgun_c.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_c_internal.h"
#include "common/usb_gun/usblog.h"

Client_Ctrl_t usbgun_client;

namespace {

std::atomic<bool> s_scangun_init{false};

constexpr int USB_INFO_SIZE = static_cast<int>(sizeof(UsbDevInfo_t));

void take_record(int p, const Unx_Head_t& head)
{
    Client_Ctrl_t& c = usbgun_client;
    const uint8_t* payload = c.buf + p + UNX_HEAD_SIZE;
    // The inventory is copied whole whatever its length field says; neither
    // copy may run past the receive buffer.
    const std::size_t need = head.func_index == UsbDevInfoGetFun ? sizeof c.usbinfo
                             : head.func_index == UsbGunReadFun  ? head.length
                                                                 : 0;
    if (static_cast<std::size_t>(p) + UNX_HEAD_SIZE + need > UNX_BUF_SIZE) {
        USBLOG("Record at %d runs past the receive buffer, dropped.\r\n", p);
        return;
    }
    switch (head.func_index) {
    case UsbDevInfoGetFun:
        USBLOG("UsbDevInfoGetFun event comming...\r\n");
        std::memcpy(&c.usbinfo, payload, sizeof c.usbinfo);
        if (c.cb.fn != nullptr)
            c.cb.fn(reinterpret_cast<uint8_t*>(&c.usbinfo), USB_INFO_SIZE);
        break;
    case UsbGunReadFun:
        USBLOG("UsbGunReadFun event comming...\r\n");
        ring_put(c.rb, payload, head.length);
        break;
    default: break;
    }
}

void* UsbDataTranThread(void*)
{
    for (;;)
        usbgun_c_receive_pass();
    return nullptr;
}

// The connection ended: closed under the lock the senders hold, so that none
// of them writes to the number once it is closed (or reused). Senders get -2
// until the receiver has connected again.
void connection_lost()
{
    Client_Ctrl_t& c = usbgun_client;
    std::lock_guard<std::mutex> guard(c.mutex_client);
    unix_socket_close(c.unx_fd.exchange(-1));
    c.held = 0;
    USBLOG("Unix socket closed by the service, connecting again...\r\n");
}

struct SendTexts {
    const char* not_connected;
    const char* no_memory;
    const char* short_write;
};

// Sends one record: 1 written, 0 not connected, -1 out of memory, -2 short
// write (each logged with the sender's own text).
int send_record(uint32_t func_index, const void* payload, uint32_t len, const SendTexts& texts)
{
    Client_Ctrl_t& c = usbgun_client;
    const int fd = c.unx_fd.load(std::memory_order_acquire);
    if (fd == 0) {
        USBLOG("%s", texts.not_connected);
        return 0;
    }
    // The daemon went away and is not back yet: the record cannot be sent.
    if (fd < 0) {
        USBLOG("%s", texts.short_write);
        return -2;
    }
    const std::size_t size = UNX_HEAD_SIZE + len;
    std::unique_ptr<uint8_t[]> rec(new (std::nothrow) uint8_t[size]);
    if (rec == nullptr) {
        USBLOG("%s", texts.no_memory);
        return -1;
    }
    put_unx_record(rec.get(), func_index, payload, len);
    ssize_t n = -1;
    {
        std::lock_guard<std::mutex> guard(c.mutex_client);
        // Lost since the look above: a short write as well. A daemon gone
        // gives EPIPE here, never a SIGPIPE in the client program.
        const int fd = c.unx_fd.load(std::memory_order_relaxed);
        if (fd > 0)
            n = unix_socket_send(fd, rec.get(), size);
    }
    if (n != static_cast<ssize_t>(size)) {
        USBLOG("%s", texts.short_write);
        return -2;
    }
    return 1;
}

// The senders' texts, each kept as it stands.
constexpr SendTexts NAME_TEXTS{"Unx socket handle not init.\r\n", "Malloc is failure.\r\n",
                               "Unix_socket write is failure.\r\n"};
constexpr SendTexts TYPE_TEXTS{"Unx socket handle not init.\r\n", "Malloc memory is failure.\r\n",
                               "Unix_socket write is failure.\r\n"};
constexpr SendTexts ROUTE_TEXTS{"unx socket handle not init.\r\n", "Malloc memory is failure.\r\n",
                                "unix_socket write is failure.\r\n"};

// Keeps the last bOn of each name; the oldest name goes when all places are taken.
void remember_name(ClientConf& conf, const ScanGunConfigName_t& rec)
{
    const auto end = conf.names.begin() + conf.name_count;
    auto same = std::find_if(conf.names.begin(), end,
                              [&](const ScanGunConfigName_t& n) { return std::strcmp(n.name, rec.name) == 0; });
    if (same == end && conf.name_count == ClientConf::MAX_NAMES)
        same = conf.names.begin();
    else if (same == end)
        ++conf.name_count;
    std::move(same + 1, conf.names.begin() + conf.name_count, same);
    conf.names[conf.name_count - 1] = rec;
}

// Gives a daemon reached again what the program configured, one record at a
// time: names first (in the order they were last set), then the data type
// and the route.
void replay_configuration()
{
    ClientConf conf;
    {
        std::lock_guard<std::mutex> guard(usbgun_client.mutex_client);
        conf = usbgun_client.conf;
    }
    for (int i = 0; i < conf.name_count; ++i) {
        usleep(REPLAY_PAUSE_US);
        send_record(UsbGunNameSetFun, &conf.names[i], sizeof conf.names[i], NAME_TEXTS);
    }
    if (conf.datatype_set) {
        usleep(REPLAY_PAUSE_US);
        send_record(UsbGunDataTypeSetFun, &conf.datatype, sizeof conf.datatype, TYPE_TEXTS);
    }
    if (conf.route_set) {
        usleep(REPLAY_PAUSE_US);
        send_record(UsbGunRouteInfoSetFun, &conf.route, sizeof conf.route, ROUTE_TEXTS);
    }
}

}  // namespace

int ring_filled(const RingBuffer_t& rb)
{
    return rb.pIn >= rb.pOut ? rb.pIn - rb.pOut : rb.pIn + RING_SIZE - rb.pOut;
}

int ring_free(const RingBuffer_t& rb)
{
    return rb.pIn < rb.pOut ? rb.pOut - 1 - rb.pIn : rb.pOut + RING_SIZE - 1 - rb.pIn;
}

bool ring_put(RingBuffer_t& rb, const uint8_t* data, uint32_t len)
{
    if (ring_free(rb) == 0 || len >= static_cast<uint32_t>(RING_SIZE))
        return false;
    const int n = static_cast<int>(len);
    if (rb.pIn + n > RING_SIZE) {
        const int first = RING_SIZE - rb.pIn;
        std::memcpy(rb.data + rb.pIn, data, first);
        std::memcpy(rb.data, data + first, n - first);
        rb.pIn = n - first;
    } else {
        std::memcpy(rb.data + rb.pIn, data, n);
        rb.pIn = (rb.pIn + n) % RING_SIZE;
    }
    return true;
}

void usbgun_c_take(ssize_t got)
{
    Client_Ctrl_t& c = usbgun_client;
    const int total = c.held + static_cast<int>(std::max<ssize_t>(got, 0));
    if (total <= static_cast<int>(UNX_HEAD_SIZE)) {
        if (got >= 1)
            c.held = total;
        return;
    }
    const int p = find_unx_flag(c.buf, total - 3);
    if (p < 0) {
        c.held = 0;
        return;
    }
    const uint32_t after_head = static_cast<uint32_t>(total) - UNX_HEAD_SIZE;
    if (total - p < static_cast<int>(UNX_HEAD_SIZE) || after_head < read_unx_head(c.buf + p).length) {
        c.held = total;
        return;
    }
    const Unx_Head_t head = read_unx_head(c.buf + p);
    std::lock_guard<std::mutex> guard(c.mutex_client);
    take_record(p, head);
    c.held = keep_after_record(c.buf, total, head.length);
}

void usbgun_c_receive_pass()
{
    Client_Ctrl_t& c = usbgun_client;
    int fd = c.unx_fd.load(std::memory_order_relaxed);
    if (fd <= 0) {
        // A daemon that went away: found again when it (or its successor)
        // listens, one attempt per pause, never a busy loop.
        usleep(RECONNECT_PAUSE_US);
        if ((fd = unix_client_open(SCANNER_SOCKET_PATH)) <= 0)
            return;
        c.unx_fd.store(fd, std::memory_order_release);
        USBLOG("Unix socket connected again...\r\n");
        replay_configuration();
    }
    // The wait's time-out paces the loop; held bytes are looked at again
    // after each, since a read may have brought more than one record.
    const int ready = unix_socket_wait(fd, 200);
    ssize_t got = 0;
    if (ready > 0) {
        got = read(fd, c.buf + c.held, UNX_BUF_SIZE - c.held);
        // End of file: the daemon closed the connection or ended.
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
            connection_lost();
            return;
        }
    } else if (ready < 0 && errno != EINTR) {
        connection_lost();
        return;
    }
    usbgun_c_take(got);
}

int UsbGunInit(UsbInfoCb_t cb)
{
    Client_Ctrl_t& c = usbgun_client;
    if (s_scangun_init.exchange(true)) {
        USBLOG("Client Initation success...\r\n");
        return 0;
    }
    {
        std::lock_guard<std::mutex> guard(c.mutex_client);
        c.unx_fd.store(0);
        c.cb = cb;
        c.usbinfo = {};
        c.rb = {};
        c.conf = {};
        c.held = 0;
    }
    usblog_init_log(SCAN_CLIENT_LOG_PATH);
    int fd;
    while ((fd = unix_client_open(SCANNER_SOCKET_PATH)) <= 0)
        usleep(100000);  // the daemon may not be up yet
    c.unx_fd.store(fd, std::memory_order_release);
    // mutex_client is a std::mutex, whose set-up cannot fail. The receiver
    // is the client program's thread: its signals are left as they are.
    pthread_t thread;
    const int rc = pthread_create(&thread, nullptr, UsbDataTranThread, nullptr);
    if (rc != 0) {
        USBLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(rc), rc);
        return -2;
    }
    pthread_detach(thread);
    c.thread = thread;
    USBLOG("Client Initation success...\r\n");
    return 0;
}

int UsbGunConfigSet(const char* name, int bOn)
{
    if (name == nullptr) {
        USBLOG("Paramer is error.\r\n");
        return -1;
    }
    ScanGunConfigName_t rec{};
    rec.index = bOn;
    std::strncpy(rec.name, name, sizeof rec.name - 1);
    {
        std::lock_guard<std::mutex> guard(usbgun_client.mutex_client);
        remember_name(usbgun_client.conf, rec);
    }
    const int rc = send_record(UsbGunNameSetFun, &rec, sizeof rec, NAME_TEXTS);
    if (rc == 1)
        USBLOG("Name:%s,bOn:%d success...\r\n", rec.name, bOn);
    return std::min(rc, 0);
}

int UsbGunDataTypeSet(int DatType)
{
    const int32_t value = DatType;
    {
        std::lock_guard<std::mutex> guard(usbgun_client.mutex_client);
        usbgun_client.conf.datatype_set = true;
        usbgun_client.conf.datatype = value;
    }
    const int rc = send_record(UsbGunDataTypeSetFun, &value, sizeof value, TYPE_TEXTS);
    if (rc == 1)
        USBLOG("Data type %d success...\r\n", DatType);
    return std::min(rc, 0);
}

int UsbGunSetRouteInfo(int nRouteMode, int nFixedScreen)
{
    const ScanGunRouteInfo_t route{nRouteMode, nFixedScreen};
    {
        std::lock_guard<std::mutex> guard(usbgun_client.mutex_client);
        usbgun_client.conf.route_set = true;
        usbgun_client.conf.route = route;
    }
    const int rc = send_record(UsbGunRouteInfoSetFun, &route, sizeof route, ROUTE_TEXTS);
    if (rc == 1)
        USBLOG("nRouteMode:%d nFixedScreen:%d success...\r\n", nRouteMode, nFixedScreen);
    return std::min(rc, 0);
}

int UsbGunRead(uint8_t* dat, int len)
{
    if (dat == nullptr || len < 0 || len > RING_SIZE) {
        USBLOG("Paramer is error.\r\n");
        return -1;
    }
    RingBuffer_t& rb = usbgun_client.rb;
    int n;
    {
        std::lock_guard<std::mutex> guard(usbgun_client.mutex_client);
        const int filled = ring_filled(rb);
        if (filled == 0)
            return 0;
        n = std::min(filled, len);
        if (rb.pOut + n <= RING_SIZE) {
            std::memcpy(dat, rb.data + rb.pOut, n);
            rb.pOut = (rb.pOut + n) % RING_SIZE;
        } else {
            const int first = RING_SIZE - rb.pOut;
            std::memcpy(dat, rb.data + rb.pOut, first);
            std::memcpy(dat + first, rb.data, n - first);
            rb.pOut = n - first;
        }
    }
    USBLOG("Read len:%d,real len:%d success...\r\n", len, n);
    usblog_log_dumpdata(dat, n);
    return n;
}

int UsbDevInfoGet(UsbDevInfo_t* list)
{
    if (list == nullptr) {
        USBLOG("Paramer is error.\r\n");
        return -1;
    }
    std::lock_guard<std::mutex> guard(usbgun_client.mutex_client);
    *list = usbgun_client.usbinfo;
    return 0;
}
