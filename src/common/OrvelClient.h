// Remote-screen client towards the agent on the external computer: the link
// state, the frames the daemon sends the agent, and the socket lock shared
// with the main loop.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/communicate.h"
#include "common/tactord_types.h"

// Frame header; the whole frame is msgLen + 12 bytes.
struct _IPCMsg {
    uint32_t pkgFlag;  // IPC_PKG_FLAG
    uint32_t msgLen;   // 4 + payload length
    uint32_t crc;      // 0 when sent, never checked
    uint32_t msgType;  // MessageType
};
using IPCMsg_t = _IPCMsg;
static_assert(sizeof(IPCMsg_t) == 16);
static_assert(offsetof(IPCMsg_t, pkgFlag) == 0);
static_assert(offsetof(IPCMsg_t, msgLen) == 4);
static_assert(offsetof(IPCMsg_t, crc) == 8);
static_assert(offsetof(IPCMsg_t, msgType) == 12);

inline constexpr uint32_t IPC_PKG_FLAG = 0xABCDABCD;

enum MessageType : uint32_t {
    MessageType_Tick = 0,
    MessageType_Mouse = 1,
    MessageType_Keyboard = 2,
    MessageType_Scan = 3,
    MessageType_MoveIn = 4,
    MessageType_MoveOut = 5,
    MessageType_CapsLock = 6,
    MessageType_NumLock = 7,
    MessageType_ScrollLock = 8,
    MessageType_OrvelExtentScreen = 9,
    MessageType_WindowsSize = 10,
    MessageType_FocusIn = 11,
    MessageType_FocusOut = 12,
    MessageType_ShutDown = 13,
    MessageType_StandBy = 14,
    MessageType_Reboot = 15,
    MessageType_Touch = 16,
    MessageType_Version = 17,
    MessageType_WakeUp = 18,
    MessageType_SetResolution = 19,
};

// Pointer record, the layout of the agent's pointer-injection interface.
struct MOUSEINPUT {
    int32_t dx;
    int32_t dy;
    int32_t mouseData;
    uint32_t dwFlags;
    uint32_t time;         // always 0
    uint32_t dwExtraInfo;  // always 0
};
static_assert(sizeof(MOUSEINPUT) == 24);
static_assert(offsetof(MOUSEINPUT, dx) == 0);
static_assert(offsetof(MOUSEINPUT, dy) == 4);
static_assert(offsetof(MOUSEINPUT, mouseData) == 8);
static_assert(offsetof(MOUSEINPUT, dwFlags) == 12);
static_assert(offsetof(MOUSEINPUT, time) == 16);
static_assert(offsetof(MOUSEINPUT, dwExtraInfo) == 20);

struct KEYBDINPUT {
    uint16_t wVk;    // always 0
    uint16_t wScan;  // the Linux key code
    uint32_t dwFlags;
    uint32_t time;
    uint32_t dwExtraInfo;
};
static_assert(sizeof(KEYBDINPUT) == 16);
static_assert(offsetof(KEYBDINPUT, wVk) == 0);
static_assert(offsetof(KEYBDINPUT, wScan) == 2);
static_assert(offsetof(KEYBDINPUT, dwFlags) == 4);
static_assert(offsetof(KEYBDINPUT, time) == 8);
static_assert(offsetof(KEYBDINPUT, dwExtraInfo) == 12);

// Screen-size record of a window-size answer.
struct IPCWINSIZE {
    int32_t nthScreen;
    uint32_t width;
    uint32_t height;
};
using ScreenResolution = IPCWINSIZE;
static_assert(sizeof(IPCWINSIZE) == 12);
static_assert(offsetof(IPCWINSIZE, width) == 4);
static_assert(offsetof(IPCWINSIZE, height) == 8);

// Power and resolution commands.
enum IPC_COMMAND : int {
    CMD_SHUTDOWN = 0,
    CMD_STANDBY = 1,
    CMD_REBOOT = 2,
    CMD_WAKEUP = 3,
    CMD_SETTING_RESOLUTION = 4,
};

// Scanner record in front of the data of a MessageType_Scan frame.
inline constexpr uint32_t USB_SCAN_FLAG = 0xACACACAC;
enum UsbScanFunIndex_t : uint32_t {
    eFun_SetDataCodeType = 0,
    eFun_GetScanData = 1,
    eFun_Other = 2,
};
struct UsbScanFunType_t {
    uint32_t UsbScanFlag;  // USB_SCAN_FLAG
    uint32_t Fun_Index;    // UsbScanFunIndex_t
};
static_assert(sizeof(UsbScanFunType_t) == 8);
static_assert(offsetof(UsbScanFunType_t, UsbScanFlag) == 0);
static_assert(offsetof(UsbScanFunType_t, Fun_Index) == 4);

inline constexpr int IPC_PORT = 27015;
inline constexpr std::size_t IPC_TEXT_LEN = 16;  // peer address and version texts

// Starts the tick thread, which connects to the agent, keeps the link alive
// and reconnects. -1 ("create ipc thread failed") when the thread cannot be
// created, else 0.
int initIpcClient();

// The link's handlers. Ready: registers fd with the main loop and as screen
// 2's receiver and asks for the window size and version. Disconnected:
// unregisters and closes the link (run from the receive handler and from the
// tick thread, possibly both for one link). Receive (main loop, para = fd):
// reads and handles the agent's frames.
void handleIPCReady(int fd);
void handleIPCDisconnected(int fd);
int ipcMsgHandle(void* para);

// Scanner data for the agent (type-3 frames), sent on the current link under
// the send mutex whether connected or not. Data: len + 24 on success. Code
// type: 0. Both: -1 when the frame cannot be built, -2 when it did not go out
// whole (also with no link).
int sendIpcScanGunData(const uint8_t* data, unsigned len);
int setIpcScanGunDataCodeType(int type);

// The recursive socket lock (ipc_close_socket_lock), the loop lock: held by
// the main loop while it builds its descriptor set and runs the ready
// handlers, by this client and the INDP client while they register or drop
// their socket, and by any other thread while it sends to a display client
// (client_send). Handed out first come, first served.
void LockIpcSocket();
void UnlockIpcSocket();
// Holds the loop lock for a scope, for a thread other than the main loop's
// dispatch (or a handler of it that drops a link). The main loop waits
// behind such a holder, so the holder's waits on clients' sockets share one
// short bound.
inline constexpr int LOOP_LOCK_HOLDER_WAIT_MS = 50;
class LoopLockGuard {
public:
    LoopLockGuard() = default;
    LoopLockGuard(const LoopLockGuard&) = delete;
    LoopLockGuard& operator=(const LoopLockGuard&) = delete;

private:
    struct Hold {
        Hold() { LockIpcSocket(); }
        ~Hold() { UnlockIpcSocket(); }
    } hold_;                                         // taken first, released last
    IoWaitLimit limit_{LOOP_LOCK_HOLDER_WAIT_MS};  // counted from the moment the lock is held
};

// Remote-screen client type from option -t: 0 converts IPC-screen events into
// mouse records, anything else sends raw input_event records.
extern int gs_ipcType;

// Link state: connected flag, socket (0 = none), the extended-screen value
// and version text last received from the agent.
int ipcIsExist();
int getIpcHanle();
int getIpcExtScrExist();
const char* ipcVersion();

// New agent address (at most 15 characters), used at the next connect; a
// live link is dropped at its next check. -1 for null text (logged), else 0.
int setIpcIpAddr(const char* text);
// Copies the agent address into out (NUL-terminated).
void getIpcIpAddr(char* out, std::size_t len);
// Power and resolution commands: 0 only when a 16-byte frame went out whole,
// else -1 ("Ipc not connected" while there is no link).
int sendCmdToIpc(int cmd, int lParam, int rParam);
// One event converted into an agent frame and sent on fd: send_data's
// result, or -1 for an event with no frame.
int sendToIPC(int fd, tactord::input_event* ev);
// Requests of the window size (type 10) and version (type 17): 0 when all 16
// bytes went out, else -1.
int getIPCWinSize(int fd);
int getIPCVersion(int fd);
