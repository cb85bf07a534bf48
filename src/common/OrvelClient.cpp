#include "common/OrvelClient.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "arm/IndpClient.h"
#include "common/OrvelClient_internal.h"
#include "common/client_send.h"
#include "common/communicate.h"
#include "common/fifo_mutex.h"
#include "common/inputdevice_manager.h"
#include "common/log.h"
#include "common/screen_manager.h"
#include "common/worker_thread.h"
#include "msg_handle.h"

int gs_ipcType = 0;
std::atomic<int> gs_ipcClientExist{0};
std::atomic<int> gs_ipcfd{0};
std::atomic<int> gs_ipcExtScrExist{0};
std::atomic<int> gs_ipcTick{0};
ipc_rx_state ipc_rx;
std::atomic<unsigned> link_time_divisor{1};

namespace {

constexpr const char* DEFAULT_PEER = "173.0.0.2";
constexpr std::size_t SEND_BUF_LEN = 56;
constexpr std::size_t MIN_FRAME_BUF = 40;
constexpr std::size_t HEADER = sizeof(IPCMsg_t);
constexpr std::size_t SCAN_HEADER = HEADER + sizeof(UsbScanFunType_t);

// Tick thread timing (real milliseconds, see link_time_divisor).
constexpr unsigned CONNECT_WAIT_MS = 5000;
constexpr unsigned CONNECT_ERROR_PAUSE_MS = 5000;
constexpr unsigned RETRY_PAUSE_MS = 1000;
constexpr unsigned TICK_PERIOD_MS = 5000;
constexpr unsigned RECONNECT_PAUSE_MS = 3000;
constexpr int TICKS_PER_CHECK = 4;
constexpr int FAIL_LINES_MAX = 20;
// recv_data already waits out ten would-block reads; a handler called for a
// socket that still has nothing gives up after this many calls of it.
constexpr int RECV_CALLS_MAX = 3;
// A frame longer than the receive buffer is skipped whole when its length is
// plausible; a longer length is taken for noise and the search for the
// marker goes on from the next byte.
constexpr uint64_t SKIP_FRAME_MAX = 4096;

// The loop lock. Guards the registrations of the screens' receivers and every
// send to a display client or link (client_send) against a descriptor's close:
// the main loop holds it while it builds its descriptor set and calls the
// handlers, this client while it registers and unregisters the socket, and
// every other thread while it sends to a client or to the link (the cursor
// timer, scanner frames). A descriptor number checked against gs_ipcfd or
// gs_clients under this lock is therefore still the link's or the client's
// and not a number reused by another part of the daemon. Recursive because a
// handler run by the loop may drop the socket while the loop still holds it;
// first come, first served, because the loop takes it again microseconds
// after letting go and would otherwise starve every other thread. Taken
// before mutex_socket and cursor_lock. The ticks do not take it: they go out
// on the tick thread's own descriptor, which no one but that thread closes.
FifoRecursiveMutex ipc_close_socket_lock;
// Serialises whole frames on the socket and guards the send buffer and the
// last pointer position that frames are built from.
std::mutex mutex_socket;
// Guards the agent's address between the control socket and the link thread.
std::mutex ipc_addr_lock;

char ipc_addr[IPC_TEXT_LEN] = "173.0.0.2";
// Version text as last received (on the main loop, like its reader).
char ipc_version[IPC_TEXT_LEN] = "";
uint8_t send_buf[SEND_BUF_LEN];
int last_x = 0;
int last_y = 0;

void put_header(uint8_t* buf, uint32_t msg_len, uint32_t type)
{
    const IPCMsg_t head{IPC_PKG_FLAG, msg_len, 0, type};
    std::memcpy(buf, &head, sizeof head);
}

int put_mouse(uint8_t* buf, uint32_t type, const MOUSEINPUT& in)
{
    put_header(buf, 4 + sizeof in, type);
    std::memcpy(buf + HEADER, &in, sizeof in);
    return static_cast<int>(HEADER + sizeof in);
}

int press_frame(uint8_t* buf, const tactord::input_event& ev)
{
    MOUSEINPUT in{};
    uint32_t type = MessageType_Mouse;
    const bool down = ev.value != 0;
    switch (ev.code) {
    case 272: in.dwFlags = down ? 0x0002 : 0x0004; break;
    case 273: in.dwFlags = down ? 0x0008 : 0x0010; break;
    case 274: in.dwFlags = down ? 0x0020 : 0x0040; break;
    case 330:
        type = MessageType_Touch;
        in.dwFlags = down ? 0x0002 : 0x0004;
        break;
    default:  // the wheel: one step is 120 units (wrapping like the 32-bit original)
        in.dwFlags = 0x0800;
        in.mouseData = static_cast<int32_t>(static_cast<uint32_t>(ev.value) * 120U);
        break;
    }
    return put_mouse(buf, type, in);
}

int key_frame(uint8_t* buf, const tactord::input_event& ev)
{
    KEYBDINPUT in{};
    in.wScan = ev.code;
    in.dwFlags = ev.value != 0 ? 0x08 : 0x0A;
    put_header(buf, 4 + sizeof in, MessageType_Keyboard);
    std::memcpy(buf + HEADER, &in, sizeof in);
    return static_cast<int>(HEADER + sizeof in);
}

int move_frame(uint8_t* buf, const tactord::input_event& ev)
{
    const OutputDev* out = get_output_info(IPC_SCREEN);
    if (out == nullptr || out->connect_state != 1 || out->width <= 0 || out->height <= 0) {
        TLOG(LEVEL_ERROR, "IPC output error\n");
        return -1;
    }
    if (ev.code == 0 || ev.code == 53)
        last_x = ev.value;
    else if (ev.code == 1 || ev.code == 54)
        last_y = ev.value;
    MOUSEINPUT in{};
    // 64-bit products: a position beyond 32767 would overflow 32 bits.
    in.dx = static_cast<int32_t>(static_cast<int64_t>(last_x) * 65535 / out->width);
    in.dy = static_cast<int32_t>(static_cast<int64_t>(last_y) * 65535 / out->height);
    in.dwFlags = 0x8001;
    TLOG(LEVEL_DEBUG, "QQQQ %d : %d\n", in.dx, in.dy);
    return put_mouse(buf, ev.type == 3 ? MessageType_Touch : MessageType_Mouse, in);
}

int bare_frame(uint8_t* buf, uint32_t type)
{
    put_header(buf, 4, type);
    return static_cast<int>(HEADER);
}

int lock_frame(uint8_t* buf, const tactord::input_event& ev)
{
    if (ev.code > 2)
        return -1;
    put_header(buf, 8, MessageType_CapsLock + ev.code);
    const int32_t on = ev.value == 1 ? 1 : 0;
    std::memcpy(buf + HEADER, &on, sizeof on);
    return static_cast<int>(HEADER + sizeof on);
}

uint32_t load_u32(const uint8_t* at)
{
    uint32_t v = 0;
    std::memcpy(&v, at, sizeof v);
    return v;
}

void* as_arg(int fd)
{
    return reinterpret_cast<void*>(static_cast<intptr_t>(fd));
}

int request(int fd, uint32_t type)
{
    std::lock_guard<std::mutex> guard(mutex_socket);
    put_header(send_buf, 4, type);
    const int n = client_send(fd, send_buf, HEADER);
    if (n <= 0)
        TLOG(LEVEL_ERROR, "Get win size error, no is %d\n", errno);
    return n == static_cast<int>(HEADER) ? 0 : -1;
}

// Stop request and count of the link threads.
std::mutex link_thread_lock;  // guards link_stop with link_thread_cv
std::condition_variable link_thread_cv;
bool link_stop = false;
std::atomic<int> link_threads{0};

// Sends one whole frame on the current link, possibly from a thread other
// than the main loop: the descriptor is read under the socket lock, so a link
// closed meanwhile is never confused with a descriptor opened since.
// send_data's result (-1 also when there is no link).
int send_on_link(const void* frame, std::size_t len)
{
    LoopLockGuard link;
    const int fd = gs_ipcfd.load();
    std::lock_guard<std::mutex> guard(mutex_socket);
    return client_send(fd, frame, static_cast<int>(len));
}

// A type-3 frame: header, scanner record, then len data bytes.
void put_scan_head(uint8_t* buf, unsigned len, uint32_t fun)
{
    put_header(buf, static_cast<uint32_t>(len + sizeof(UsbScanFunType_t) + 4), MessageType_Scan);
    const UsbScanFunType_t rec{USB_SCAN_FLAG, fun};
    std::memcpy(buf + HEADER, &rec, sizeof rec);
}

int send_scan_frame(const uint8_t* frame, std::size_t len)
{
    if (send_on_link(frame, len) != static_cast<int>(len)) {
        TLOG(LEVEL_ERROR, "Send data failure...\r\n");
        return -2;
    }
    return 0;
}

// One tick on the tick thread's own socket: 0, or the send's errno. Without
// the loop lock and the send mutex: the descriptor is the tick thread's own,
// and only that thread closes it, after the link is down.
int send_tick(int fd)
{
    static const IPCMsg_t tick{IPC_PKG_FLAG, 4, 0, MessageType_Tick};
    return send_data(fd, &tick, sizeof tick) == static_cast<int>(sizeof tick) ? 0 : errno;
}

// A pause of the keep-alive: like link_sleep_ms, but over as soon as the main
// loop has taken the link on fd down. False when the link threads are asked
// to stop.
bool tick_pause(int fd, unsigned ms)
{
    std::unique_lock<std::mutex> lock(link_thread_lock);
    link_thread_cv.wait_for(lock, std::chrono::milliseconds(link_scaled_ms(ms)),
                            [fd] { return link_stop || gs_ipcfd.load() != fd; });
    return !link_stop;
}

// Step 5 of a cycle: true when fd is connected to the agent. A failure is
// logged while fewer than FAIL_LINES_MAX lines went out in this cycle.
bool ipc_connect(int fd, int* fail_lines)
{
    char addr[IPC_TEXT_LEN];
    getIpcIpAddr(addr, sizeof addr);
    sockaddr_in peer{};
    int err = EINVAL;  // text that is no address counts as a failed connect
    if (link_peer_address(addr, IPC_PORT, &peer)) {
        if (connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) {
            TLOG(LEVEL_ERROR, "connect ipc %s:%d success\n", addr, IPC_PORT);
            return true;
        }
        err = errno;
    }
    if (err == EINPROGRESS) {
        pollfd p{fd, POLLOUT, 0};
        const int ready = poll(&p, 1, static_cast<int>(link_scaled_ms(CONNECT_WAIT_MS)));
        int so_error = 0;
        socklen_t len = sizeof so_error;
        if (ready > 0 && getsockopt(fd, SOL_SOCKET, SO_ERROR, &so_error, &len) == 0 && so_error == 0) {
            TLOG(LEVEL_ERROR, "connect ipc %s:%d success, fd=%d\n", addr, IPC_PORT, fd);
            return true;
        }
        // The error reported is the connect's own, or a time-out.
        err = ready > 0 ? so_error : ready == 0 ? ETIMEDOUT : errno;
    } else {
        link_sleep_ms(CONNECT_ERROR_PAUSE_MS);
    }
    if (*fail_lines < FAIL_LINES_MAX) {
        char text[64];
        TLOG(LEVEL_ERROR, "connect ipc %s:%d failed, fd=%d, errno:%s \n", addr, IPC_PORT, fd,
             strerror_r(err, text, sizeof text));
        ++*fail_lines;
    }
    return false;
}

// Step 8: ticks while connected; the link is judged dead when a whole period
// of TICKS_PER_CHECK ticks passed without one from the agent.
void ipc_keep_alive(int fd)
{
    while (ipcIsExist() != 0) {
        gs_ipcTick.store(1);
        for (int i = 0; i < TICKS_PER_CHECK; ++i) {
            if (gs_ipcfd.load() != fd)
                return;  // the receive side found the link closed
            const int err = send_tick(fd);
            if (err != 0 && err != EAGAIN) {
                TLOG(LEVEL_ERROR, "send tick failed errno =%d\n", err);
                break;
            }
            if (!tick_pause(fd, TICK_PERIOD_MS))
                return;
        }
        if (gs_ipcTick.load() == 1)
            break;
    }
}

void* ipcTickThread(void*)
{
    {
        std::lock_guard<std::mutex> guard(ipc_addr_lock);
        std::strcpy(ipc_addr, DEFAULT_PEER);
    }
    TLOG(LEVEL_DEBUG, "----Thread ipcTickThread enter----\n");
    int fail_lines = 0;
    // Ends for good when the INDP client is connected, or when no socket
    // can be created or bound.
    while (!link_stop_requested() && gs_indpClientExist.load() == 0) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        if (fd <= 0) {
            TLOG(LEVEL_ERROR, "create ipc socket failed\n");
            if (fd == 0)
                close(fd);
            break;
        }
        int on = 1;
        ioctl(fd, FIONBIO, &on);
        if (link_bind_local(fd) != 0) {
            // The socket stays open: the thread is done for the life of the
            // process.
            TLOG(LEVEL_ERROR, "----Orvel Bind Failed----\n");
            break;
        }
        if (!ipc_connect(fd, &fail_lines)) {
            close(fd);
            link_sleep_ms(RETRY_PAUSE_MS);
            continue;
        }
        int off = 0;
        ioctl(fd, FIONBIO, &off);
        handleIPCReady(fd);
        ipc_keep_alive(fd);
        TLOG(LEVEL_WARN, "handleIPCDisconnected\n");
        handleIPCDisconnected(fd);
        // The descriptor is closed here and nowhere else: until now a tick
        // could still be on its way to it.
        close(fd);
        link_sleep_ms(RECONNECT_PAUSE_MS);
        fail_lines = 0;
    }
    link_thread_done();
    return nullptr;
}

void rx_drop(std::size_t n)
{
    ipc_rx_state& rx = ipc_rx;
    n = std::min(n, rx.splice_len);
    std::memmove(rx.splice.data(), rx.splice.data() + n, rx.splice_len - n);
    rx.splice_len -= n;
}

void rx_reset()
{
    ipc_rx.splice_len = 0;
    ipc_rx.skip = 0;
}

// A frame that does not fit the receive buffer is thrown away whole, also
// the part still to come; nothing else changes.
void rx_discard(uint64_t total)
{
    ipc_rx_state& rx = ipc_rx;
    TLOG(LEVEL_WARN, "ipc msg too long, msg_len is %llu, dropped\n", static_cast<unsigned long long>(total));
    if (total > SKIP_FRAME_MAX) {
        rx_drop(1);
        return;
    }
    if (total <= rx.splice_len) {
        rx_drop(static_cast<std::size_t>(total));
        return;
    }
    rx.skip = static_cast<uint32_t>(total - rx.splice_len);
    rx.splice_len = 0;
}

void rx_dispatch(const uint8_t* frame, std::size_t total)
{
    if (total < HEADER)
        return;  // msgLen below 4: no type to act on
    const std::size_t payload = total - HEADER;
    switch (load_u32(frame + 12)) {
    case MessageType_Tick: gs_ipcTick.store(0); break;
    case MessageType_OrvelExtentScreen:
        if (payload >= sizeof(int32_t))
            gs_ipcExtScrExist.store(static_cast<int32_t>(load_u32(frame + HEADER)));
        break;
    case MessageType_WindowsSize: handle_ipc_win_size_msg(frame, total); break;
    case MessageType_Version: {
        const auto* text = reinterpret_cast<const char*>(frame + HEADER);
        const std::size_t n = strnlen(text, std::min(payload, IPC_TEXT_LEN - 1));
        std::memcpy(ipc_version, text, n);
        ipc_version[n] = '\0';
        break;
    }
    default: break;
    }
}

}  // namespace

void LockIpcSocket()
{
    ipc_close_socket_lock.lock();
}

void UnlockIpcSocket()
{
    ipc_close_socket_lock.unlock();
}

int ipcIsExist()
{
    return gs_ipcClientExist.load(std::memory_order_relaxed);
}

int getIpcHanle()
{
    return gs_ipcfd.load(std::memory_order_relaxed);
}

int getIpcExtScrExist()
{
    return gs_ipcExtScrExist.load(std::memory_order_relaxed);
}

const char* ipcVersion()
{
    return ipc_version;
}

int setIpcIpAddr(const char* text)
{
    if (text == nullptr) {
        TLOG(LEVEL_ERROR, "Set ipc ip error, ip null\n");
        return -1;
    }
    // The link thread drops a live link at its next check and reconnects.
    int connected = 1;
    gs_ipcClientExist.compare_exchange_strong(connected, 0, std::memory_order_relaxed);
    std::lock_guard<std::mutex> guard(ipc_addr_lock);
    const std::size_t n = strnlen(text, IPC_TEXT_LEN - 1);
    std::memcpy(ipc_addr, text, n);
    ipc_addr[n] = '\0';
    return 0;
}

void getIpcIpAddr(char* out, std::size_t len)
{
    if (out == nullptr || len == 0)
        return;
    std::lock_guard<std::mutex> guard(ipc_addr_lock);
    const std::size_t n = strnlen(ipc_addr, std::min(len - 1, IPC_TEXT_LEN - 1));
    std::memcpy(out, ipc_addr, n);
    out[n] = '\0';
}

int sendCmdToIpc(int cmd, int lParam, int rParam)
{
    const int fd = getIpcHanle();
    if (fd <= 0) {
        TLOG(LEVEL_ERROR, "Ipc not connected\n");
        return -1;
    }
    std::lock_guard<std::mutex> guard(mutex_socket);
    std::size_t len = HEADER;
    switch (cmd) {
    case CMD_SHUTDOWN: put_header(send_buf, 4, MessageType_ShutDown); break;
    case CMD_STANDBY: put_header(send_buf, 4, MessageType_StandBy); break;
    case CMD_REBOOT: put_header(send_buf, 4, MessageType_Reboot); break;
    case CMD_WAKEUP: put_header(send_buf, 4, MessageType_WakeUp); break;
    case CMD_SETTING_RESOLUTION: {
        put_header(send_buf, 12, MessageType_SetResolution);
        const int32_t xy[2] = {lParam, rParam};
        std::memcpy(send_buf + HEADER, xy, sizeof xy);
        len += sizeof xy;
        break;
    }
    default:
        TLOG(LEVEL_ERROR, "Not surpported cmd:%d\n", cmd);
        return -1;
    }
    const int n = client_send(fd, send_buf, static_cast<int>(len));
    if (n <= 0)
        TLOG(LEVEL_ERROR, "sendCmdToIpc, errno is %d\n", errno);
    // Only a 16-byte frame counts as sent: a whole resolution command reports
    // -1 too (nobody uses the result).
    return n == static_cast<int>(HEADER) ? 0 : -1;
}

int build_ipc_frame(uint8_t* buf, std::size_t len, const tactord::input_event* ev)
{
    if (buf == nullptr || len < MIN_FRAME_BUF || ev == nullptr)
        return -1;
    std::memset(buf, 0, MIN_FRAME_BUF);
    switch (ev->type) {
    case 1:
        if (ev->code == 272 || ev->code == 273 || ev->code == 274 || ev->code == 330)
            return press_frame(buf, *ev);
        return key_frame(buf, *ev);
    case 2:
    case 3:
        return ev->code == 8 ? press_frame(buf, *ev) : move_frame(buf, *ev);
    case EV_PRIV_FOCUS_MOVED: return bare_frame(buf, ev->code == 0 ? MessageType_FocusIn : MessageType_FocusOut);
    case EV_PRIV_CURSOR_MOVED: return bare_frame(buf, ev->code == 0 ? MessageType_MoveIn : MessageType_MoveOut);
    case EV_PRIV_LOCK_KEY_STATE: return lock_frame(buf, *ev);
    default: return -1;
    }
}

int sendToIPC(int fd, tactord::input_event* ev)
{
    if (ev == nullptr || fd <= 0)
        return -1;
    std::lock_guard<std::mutex> guard(mutex_socket);
    const int len = build_ipc_frame(send_buf, sizeof send_buf, ev);
    if (len < 0)
        return -1;
    return client_send(fd, send_buf, len);
}

int getIPCWinSize(int fd)
{
    return request(fd, MessageType_WindowsSize);
}

int getIPCVersion(int fd)
{
    return request(fd, MessageType_Version);
}

void ipc_client_reset()
{
    gs_ipcClientExist.store(0);
    gs_ipcfd.store(0);
    gs_ipcExtScrExist.store(0);
    gs_ipcTick.store(0);
    rx_reset();
    {
        std::lock_guard<std::mutex> guard(ipc_addr_lock);
        std::strcpy(ipc_addr, DEFAULT_PEER);
    }
    std::lock_guard<std::mutex> guard(mutex_socket);
    ipc_version[0] = '\0';
    last_x = last_y = 0;
}

int sendIpcScanGunData(const uint8_t* data, unsigned len)
{
    if (data == nullptr && len != 0) {
        TLOG(LEVEL_ERROR, "Ipc scan data error, data null\r\n");
        return -1;
    }
    // The result is the frame's length as an int.
    std::unique_ptr<uint8_t[]> frame(len <= INT_MAX - SCAN_HEADER ? new (std::nothrow) uint8_t[len + SCAN_HEADER]
                                                                  : nullptr);
    if (frame == nullptr) {
        TLOG(LEVEL_ERROR, "Malloc memory is failure...\r\n");
        return -1;
    }
    put_scan_head(frame.get(), len, eFun_GetScanData);
    if (len != 0)
        std::memcpy(frame.get() + SCAN_HEADER, data, len);
    const int rc = send_scan_frame(frame.get(), len + SCAN_HEADER);
    return rc == 0 ? static_cast<int>(len + SCAN_HEADER) : rc;
}

int setIpcScanGunDataCodeType(int type)
{
    // 28 bytes: built on the stack, so never short of memory.
    uint8_t frame[SCAN_HEADER + sizeof(int32_t)];
    put_scan_head(frame, sizeof(int32_t), eFun_SetDataCodeType);
    std::memcpy(frame + SCAN_HEADER, &type, sizeof(int32_t));
    return send_scan_frame(frame, sizeof frame);
}

int initIpcClient()
{
    // The socket lock (recursive, process-private) exists from the start.
    if (start_link_thread(ipcTickThread) != 0) {
        TLOG(LEVEL_ERROR, "create ipc thread failed\n");
        return -1;
    }
    return 0;
}

void handleIPCReady(int fd)
{
    TLOG(LEVEL_DEBUG, "==IPC ready==\n");
    link_set_nodelay(fd);
    // Under the socket lock up to the connected flag: the main loop cannot
    // serve the socket (nor a disconnect close it) before the link is
    // complete, and the requests go to a descriptor that is still the link.
    LoopLockGuard link;
    rx_reset();
    gs_ipcfd.store(fd);
    // Non-blocking before anything is sent from the main loop, also when the
    // loop cannot take the socket: a send to a blocking socket whose peer
    // stopped reading would hold the loop in the kernel, past every bound.
    // A link the loop cannot serve (its list is full) is not made screen 2's
    // receiver; the connected flag stays 0, so the tick thread drops it and
    // tries again.
    set_non_block(fd);
    if (add_monitor_handle(fd, ipcMsgHandle, as_arg(fd)) != 0) {
        TLOG(LEVEL_ERROR, "ipc link %d cannot be served: dropped\n", fd);
        shutdown(fd, SHUT_RDWR);
        return;
    }
    handle_inputsys_init(IPC_SCREEN, fd);
    getIPCWinSize(fd);
    getIPCVersion(fd);
    gs_ipcClientExist.store(1);
}

void handleIPCDisconnected(int fd)
{
    TLOG(LEVEL_WARN, "==IPC disconnected==\n");
    {
        LoopLockGuard link;
        // The receive handler and the tick thread both run this for one link,
        // in either order. Only the run that still finds fd stored as the
        // link's descriptor takes it out of the loop and releases screen 2;
        // the socket is shut down so that the agent sees the end at once, but
        // closed only by the tick thread, which owns it (a tick may still be
        // on its way to it, and the number must not go to another program
        // before).
        const int current = gs_ipcfd.load();
        if (fd > 0 && current == fd) {
            remove_monitor_handle(fd);
            handle_inputsys_close(fd);
            client_send_forget(fd);
            shutdown(fd, SHUT_RDWR);
            rx_reset();
        }
        if (current == fd || current == 0) {
            gs_ipcClientExist.store(0);
            gs_ipcfd.store(0);
        }
    }
    // Wake the tick thread's pause: its link is gone.
    { std::lock_guard<std::mutex> wake(link_thread_lock); }
    link_thread_cv.notify_all();
}

int ipcMsgHandle(void* para)
{
    const int fd = static_cast<int>(reinterpret_cast<intptr_t>(para));
    const int n = link_recv(fd, ipc_rx.recv.data(), static_cast<int>(ipc_rx.recv.size()));
    if (n == -1 && errno == EAGAIN)
        return 0;  // still nothing to read: the link stays
    if (n <= 0) {
        TLOG(LEVEL_WARN, "handleIPCDisconnected\n");
        handleIPCDisconnected(fd);
        rx_reset();
        return 0;
    }
    return ipc_rx_feed(ipc_rx.recv.data(), static_cast<std::size_t>(n));
}

int ipc_rx_feed(const uint8_t* data, std::size_t n)
{
    ipc_rx_state& rx = ipc_rx;
    if (data == nullptr)
        return 0;
    const std::size_t skipped = std::min<std::size_t>(rx.skip, n);
    rx.skip -= static_cast<uint32_t>(skipped);
    data += skipped;
    n -= skipped;
    if (n == 0)
        return 0;
    if (rx.splice_len + n > rx.splice.size()) {
        TLOG(LEVEL_ERROR, "half_msg_buffer is too large, half_msg_len is  %d\n", static_cast<int>(rx.splice_len));
        rx.splice_len = 0;
        return -1;
    }
    if (rx.splice_len != 0)
        TLOG(LEVEL_DEBUG, "*****msg splice happened*****\n");
    std::memmove(rx.splice.data() + rx.splice_len, data, n);
    rx.splice_len += n;

    for (;;) {
        std::size_t at = 0;
        while (rx.splice_len - at > 3 && load_u32(rx.splice.data() + at) != IPC_PKG_FLAG)
            ++at;
        rx_drop(at);
        if (rx.splice_len < 8)
            return 0;
        // 64 bits: a length near 2^32 must not wrap round.
        const uint64_t total = uint64_t{load_u32(rx.splice.data() + 4)} + 12;
        if (total > rx.recv.size()) {
            rx_discard(total);
            continue;
        }
        if (rx.splice_len < total) {
            TLOG(LEVEL_DEBUG, "*****half_msg_len = %d is not enough, msg_len is %d*****\n",
                 static_cast<int>(rx.splice_len), static_cast<int>(total));
            return 0;
        }
        std::memcpy(rx.recv.data(), rx.splice.data(), static_cast<std::size_t>(total));
        rx_drop(static_cast<std::size_t>(total));
        rx_dispatch(rx.recv.data(), static_cast<std::size_t>(total));
    }
}

void handle_ipc_win_size_msg(const uint8_t* frame, std::size_t total)
{
    constexpr std::size_t ONE = HEADER + sizeof(IPCWINSIZE);
    if (frame == nullptr || total < ONE || (get_current_multimode() & MODE_IPC_WINDOW) != 0)
        return;
    IPCWINSIZE size;
    std::memcpy(&size, frame + HEADER, sizeof size);
    if (size.nthScreen != 1) {
        // The second record counts only in a frame of exactly two.
        if (total != ONE + sizeof(IPCWINSIZE))
            return;
        std::memcpy(&size, frame + ONE, sizeof size);
        if (size.nthScreen != 1)
            return;
    }
    TLOG(LEVEL_DEBUG, "==IPC win size:n:%d width %d, height:%d\n", 1, static_cast<int>(size.width),
         static_cast<int>(size.height));
    set_ipc_window_size(size.width, size.height);
}

int link_recv(int fd, void* buf, int len)
{
    for (int calls = 0; calls < RECV_CALLS_MAX; ++calls) {
        const int n = recv_data(fd, buf, len);
        if (n != -1 || (errno != EINTR && errno != EAGAIN))
            return n;
    }
    errno = EAGAIN;
    return -1;
}

unsigned link_scaled_ms(unsigned ms)
{
    const unsigned divisor = link_time_divisor.load();
    return divisor > 1 ? ms / divisor : ms;
}

bool link_sleep_ms(unsigned ms)
{
    std::unique_lock<std::mutex> lock(link_thread_lock);
    return !link_thread_cv.wait_for(lock, std::chrono::milliseconds(link_scaled_ms(ms)), [] { return link_stop; });
}

bool link_stop_requested()
{
    std::lock_guard<std::mutex> guard(link_thread_lock);
    return link_stop;
}

int start_link_thread(void* (*entry)(void*))
{
    link_threads.fetch_add(1);
    const int rc = start_worker_thread(entry, nullptr);
    if (rc != 0)
        link_thread_done();
    return rc;
}

void link_thread_done()
{
    link_threads.fetch_sub(1);
    link_threads.notify_all();
}

void link_threads_stop()
{
    {
        std::lock_guard<std::mutex> guard(link_thread_lock);
        link_stop = true;
    }
    link_thread_cv.notify_all();
    for (int n = link_threads.load(); n != 0; n = link_threads.load())
        link_threads.wait(n);
    std::lock_guard<std::mutex> guard(link_thread_lock);
    link_stop = false;
}

int link_threads_running()
{
    return link_threads.load();
}

int link_bind_local(int fd)
{
    sockaddr_in local{};
    if (!link_peer_address(LINK_LOCAL_ADDR, 0, &local))
        return -1;
    return bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 ? 0 : -1;
}

bool link_peer_address(const char* text, int port, sockaddr_in* addr)
{
    *addr = {};
    addr->sin_family = AF_INET;
    addr->sin_port = htons(static_cast<uint16_t>(port));
    return text != nullptr && inet_pton(AF_INET, text, &addr->sin_addr) == 1;
}

void link_set_nodelay(int fd)
{
    int on = 1;
    if (setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0)
        TLOG(LEVEL_ERROR, "Set tcp nodelay error, is %d\n", errno);
    socklen_t len = sizeof on;
    if (getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, &len) != 0)
        TLOG(LEVEL_ERROR, "get tcp nodelay error, is %d\n", errno);
}
