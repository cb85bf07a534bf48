// The control socket "/var/mutli_config.sock": display clients register for
// a screen there (and then read their events on the same connection), steer
// the multi-screen mode, the IPC window, the cursor and the calibration.
// Every request and reply is one 64-byte record.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/screen_manager.h"
#include "common/tactord_types.h"
#include "common/ts_cali.h"

inline constexpr const char* SYSTEM_MSG_SOCKET = "/var/mutli_config.sock";
// Mode of the socket file: owner and group may connect.
inline constexpr unsigned SYSTEM_MSG_SOCKET_MODE = 0660;

enum MSG_TYPE_E : int32_t {
    TYPE_INPUT_INIT = 0,
    TYPE_MODE_SET = 1,
    TYPE_MODE_GET = 2,
    TYPE_LED_CTRL = 3,
    TYPE_IPC_WINDOW = 4,
    TYPE_IPC_CONNECTED = 5,
    TYPE_VNC_INPUT = 6,
    TYPE_SET_DIRECTION = 7,
    TYPE_SET_CURSOR_TIME = 8,
    TYPE_SET_IPC_IP = 9,
    TYPE_SEND_IPC_CMD = 10,
    TYPE_GET_IPC_WIN_INFO = 11,
    TYPE_ORVEL_EXT_SCR_EXIST = 12,
    TYPE_SET_IPC_WINDOW = 13,
    TYPE_GET_VERSION = 14,
    TYPE_SET_MOUSE_SENSITIVITY = 15,
    TYPE_RECOVERY_SCREEN = 16,
    TYPE_ENTER_TS_CALI_MODE = 17,
    TYPE_GET_TS_CALI_POINT = 18,
    TYPE_CALI_TS = 19,
    TYPE_QUIT_TS_CALI_MODE = 20,
    TYPE_CHECK_TS_TYPE = 21,
    TYPE_SET_TS_CALI_PARA = 22,
    TYPE_GET_TS_CALI_PARA = 23,
    TYPE_SWITCH_TOUCH_SCREEN = 24,
};
inline constexpr int32_t TYPE_MAX = TYPE_SWITCH_TOUCH_SCREEN;

// Payload records of the data union.
struct _IPC_WIN {
    int32_t op;  // IPCWIN_OP
    RECT_BOX ipc_win;
};
using IPC_WIN = _IPC_WIN;
static_assert(sizeof(IPC_WIN) == 20);
static_assert(offsetof(IPC_WIN, op) == 0);
static_assert(offsetof(IPC_WIN, ipc_win) == 4);

struct _IPC_CMD {
    int32_t ipc_cmd;  // IPC_COMMAND
    int32_t lParam;
    int32_t rParam;
};
using IPC_CMD = _IPC_CMD;
static_assert(sizeof(IPC_CMD) == 12);
static_assert(offsetof(IPC_CMD, ipc_cmd) == 0);
static_assert(offsetof(IPC_CMD, lParam) == 4);
static_assert(offsetof(IPC_CMD, rParam) == 8);

struct _InputVersion {
    std::array<char, 16> tactordVer;
    std::array<char, 16> orvelVer;
};
using InputVersion = _InputVersion;
static_assert(sizeof(InputVersion) == 32);
static_assert(offsetof(InputVersion, tactordVer) == 0);
static_assert(offsetof(InputVersion, orvelVer) == 16);

struct _TS_CALI {
    cali_point_t expect_point;  // the five display targets
    int32_t displaysize_x;
    int32_t displaysize_y;
    int32_t result;
};
using TS_CALI = _TS_CALI;
static_assert(sizeof(TS_CALI) == 52);
static_assert(offsetof(TS_CALI, expect_point) == 0);
static_assert(offsetof(TS_CALI, displaysize_x) == 40);
static_assert(offsetof(TS_CALI, displaysize_y) == 44);
static_assert(offsetof(TS_CALI, result) == 48);

inline constexpr int TS_CALI_PARA_INDEX = 7;  // ts_cali_para[7]: the touchscreen index

// The system message: 64 bytes, host byte order (little-endian on the
// target), type and scr_index echoed unchanged in replies.
struct _SystemMsg {
    int32_t type;       // MSG_TYPE_E
    int32_t scr_index;  // screen or touchscreen index
    union {
        int32_t nValue;
        MultiModeInfo mode_info;
        tactord::input_event evt;
        IPC_WIN win;
        int32_t ipc_connected;
        int32_t scr_direction;
        int32_t hide_seconds;
        std::array<char, 16> ip_addr;  // dotted IPv4 text
        IPC_CMD cmd;
        IpcWinInfo ipc_win_info;
        int32_t ipc_ext_scr_exist;
        InputVersion version;
        TS_CALI ts_cali_data;
        int32_t ts_type;
        std::array<int32_t, 8> ts_cali_para;  // 7 parameters and the index
    } data;
};
using SystemMsg = _SystemMsg;
inline constexpr std::size_t SYSTEM_MSG_SIZE = 64;
static_assert(sizeof(SystemMsg) == SYSTEM_MSG_SIZE);
static_assert(offsetof(SystemMsg, type) == 0);
static_assert(offsetof(SystemMsg, scr_index) == 4);
static_assert(offsetof(SystemMsg, data) == 8);
static_assert(sizeof(SystemMsg::data) == 56);
static_assert(offsetof(SystemMsg, data.nValue) == 8);
static_assert(offsetof(SystemMsg, data.mode_info) == 8);
static_assert(offsetof(SystemMsg, data.evt) == 8);
static_assert(offsetof(SystemMsg, data.win) == 8);
static_assert(offsetof(SystemMsg, data.ipc_connected) == 8);
static_assert(offsetof(SystemMsg, data.scr_direction) == 8);
static_assert(offsetof(SystemMsg, data.hide_seconds) == 8);
static_assert(offsetof(SystemMsg, data.ip_addr) == 8 && sizeof(SystemMsg::data.ip_addr) == 16);
static_assert(offsetof(SystemMsg, data.cmd) == 8);
static_assert(offsetof(SystemMsg, data.ipc_win_info) == 8);
static_assert(offsetof(SystemMsg, data.ipc_ext_scr_exist) == 8);
static_assert(offsetof(SystemMsg, data.version) == 8);
static_assert(offsetof(SystemMsg, data.ts_cali_data) == 8);
static_assert(offsetof(SystemMsg, data.ts_type) == 8);
static_assert(offsetof(SystemMsg, data.ts_cali_para) == 8 && sizeof(SystemMsg::data.ts_cali_para) == 32);

// Creates the control socket (its file mode set to SYSTEM_MSG_SOCKET_MODE)
// and serves it from the main loop: 0, or -1 ("create_monitor failed").
int start_system_service();
// Starts the service when it is stopped, else registers its socket with the
// main loop again (after the loop's list was cleared).
void restart_system_service();
void stop_system_service();

// Handles one record from connection fd; replies on fd where the type has
// a reply. 0, or the result of a mode change or a calibration.
int handle_system_msg(int fd, SystemMsg* msg);
