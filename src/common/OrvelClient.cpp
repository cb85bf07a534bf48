#include "common/OrvelClient.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "common/OrvelClient_internal.h"
#include "common/communicate.h"
#include "common/log.h"
#include "common/screen_manager.h"

int gs_ipcType = 0;
std::atomic<int> gs_ipcClientExist{0};
std::atomic<int> gs_ipcfd{0};
std::atomic<int> gs_ipcExtScrExist{0};

namespace {

constexpr const char* DEFAULT_PEER = "173.0.0.2";
constexpr std::size_t SEND_BUF_LEN = 56;
constexpr std::size_t MIN_FRAME_BUF = 40;
constexpr std::size_t HEADER = sizeof(IPCMsg_t);

// Guards the socket's registration against the main loop's walk of the
// monitor list. Recursive because a handler run by the loop may drop the
// socket while the loop still holds the lock.
std::recursive_mutex ipc_close_socket_lock;
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

int request(int fd, uint32_t type)
{
    std::lock_guard<std::mutex> guard(mutex_socket);
    put_header(send_buf, 4, type);
    const int n = send_data(fd, send_buf, HEADER);
    if (n <= 0)
        TLOG(LEVEL_ERROR, "Get win size error, no is %d\n", errno);
    return n == static_cast<int>(HEADER) ? 0 : -1;
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
    const int n = send_data(fd, send_buf, static_cast<int>(len));
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
    return send_data(fd, send_buf, len);
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
    {
        std::lock_guard<std::mutex> guard(ipc_addr_lock);
        std::strcpy(ipc_addr, DEFAULT_PEER);
    }
    std::lock_guard<std::mutex> guard(mutex_socket);
    ipc_version[0] = '\0';
    last_x = last_y = 0;
}
