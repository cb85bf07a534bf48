#include "common/system_msg.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "arm/input_manager.h"
#include "arm/screen_device_manager.h"
#include "common/OrvelClient.h"
#include "common/communicate.h"
#include "common/cursor_timer.h"
#include "common/inputdevice_manager.h"
#include "common/inputevent_handle.h"
#include "common/keyboard_manager.h"
#include "common/log.h"
#include "common/root_path.h"
#include "common/system_msg_internal.h"
#include "msg_handle.h"

namespace {

// The listening descriptor; only the main thread touches it.
int system_fd = 0;

void* as_arg(int fd)
{
    return reinterpret_cast<void*>(static_cast<intptr_t>(fd));
}

int from_arg(void* arg)
{
    return static_cast<int>(reinterpret_cast<intptr_t>(arg));
}

void reply(int fd, const SystemMsg* msg)
{
    send_data(fd, msg, sizeof *msg);
}

// Copies text into a fixed field, always NUL-terminated and never past it.
void copy_text(std::array<char, 16>& field, const char* text)
{
    field = {};
    if (text != nullptr)
        std::strncpy(field.data(), text, field.size() - 1);
}

void set_mouse_sensitivity(int value)
{
    if (value >= 1 && value <= 10) {
        g_MouseSensitivityValue = value;
        TLOG(LEVEL_DEBUG, "g_MouseSensitivityValue = %d\n", value);
    } else {
        TLOG(LEVEL_ERROR, "g_MouseSensitivityValue = %d\n", value);
    }
}

int calibrate(int fd, SystemMsg* msg)
{
    TS_CALI& cali = msg->data.ts_cali_data;
    const int r = ts_calibrate(msg->scr_index, &cali.expect_point, static_cast<unsigned>(cali.displaysize_x),
                               static_cast<unsigned>(cali.displaysize_y));
    if (ts_get_cali_ts_private_data(msg->scr_index) == nullptr) {
        cali.result = -1;
        TLOG(LEVEL_ERROR, "++++system msg++++TYPE_CALI_TS\n");
    } else {
        cali.result = r;
    }
    reply(fd, msg);
    return r;
}

void check_ts_type(int fd, SystemMsg* msg)
{
    const ts_priv_data_s* ts = ts_get_private_data(msg->scr_index);
    if (ts != nullptr) {
        msg->data.ts_type = ts->ts_type;
    } else {
        msg->data.ts_type = 1;
        TLOG(LEVEL_ERROR, "++++system msg++++TYPE_CHECK_TS_TYPE\n");
    }
    reply(fd, msg);
}

void set_cali_para(const SystemMsg* msg)
{
    const auto& para = msg->data.ts_cali_para;
    const int idx = para[TS_CALI_PARA_INDEX];
    if (static_cast<unsigned>(idx) < TS_SEAT_MAX)
        std::copy_n(para.begin(), CALI_PARAM_NUM, cal_param_dat[idx].begin());
    ts_priv_data_s* ts = ts_get_private_data(idx);
    if (ts == nullptr) {
        TLOG(LEVEL_ERROR, "++++system msg++++TYPE_SET_TS_CALI_PARA\n");
        return;
    }
    std::lock_guard<std::mutex> guard(ts->cali_lock);
    std::copy_n(para.begin(), CALI_PARAM_NUM, ts->cali_param.begin());
    const auto& p = ts->cali_param;
    TLOG(LEVEL_INFO, "set ts [%d] calipara data %d %d %d %d %d %d %d\n", idx, p[0], p[1], p[2], p[3], p[4], p[5],
         p[6]);
}

void get_cali_para(int fd, SystemMsg* msg)
{
    ts_priv_data_s* ts = ts_get_cali_ts_private_data(msg->scr_index);
    if (ts == nullptr) {
        TLOG(LEVEL_ERROR, "++++system msg++++TYPE_GET_TS_CALI_PARA\n");
        return;
    }
    auto& para = msg->data.ts_cali_para;
    {
        std::lock_guard<std::mutex> guard(ts->cali_lock);
        std::copy_n(ts->cali_param.begin(), CALI_PARAM_NUM, para.begin());
    }
    para[TS_CALI_PARA_INDEX] = ts->ts_id;
    TLOG(LEVEL_INFO, "get ts [%d] calipara data %d %d %d %d %d %d %d\n", ts->ts_id, para[0], para[1], para[2],
         para[3], para[4], para[5], para[6]);
    reply(fd, msg);
}

}  // namespace

int system_service_fd()
{
    return system_fd;
}

int handle_new_coming(void* arg)
{
    const int client = get_new_comming_client(from_arg(arg));
    if (client < 1)
        return -1;
    // A connection the full monitor list cannot take would never be served:
    // it is closed at once, so the client learns and the descriptor is not
    // lost.
    if (add_monitor_handle(client, handle_new_client_data, as_arg(client)) != 0)
        close_connect(client);
    return 0;
}

int handle_new_client_data(void* arg)
{
    const int fd = from_arg(arg);
    uint8_t bytes[SYSTEM_MSG_SIZE] = {};
    if (recv_need_len_data(fd, bytes, sizeof bytes, sizeof bytes) != static_cast<int>(sizeof bytes)) {
        remove_monitor_handle(fd);
        handle_inputsys_close(fd);
        close_connect(fd);
        return 0;
    }
    SystemMsg msg;
    std::memcpy(&msg, bytes, sizeof msg);
    return handle_system_msg(fd, &msg);
}

int start_system_service()
{
    root_path_buf buf;
    const char* path = resolve_path(SYSTEM_MSG_SOCKET, buf);
    system_fd = create_monitor(path);
    if (system_fd < 0) {
        TLOG(LEVEL_ERROR, "create_monitor failed\n");
        return -1;
    }
    // Not the process default: only the owner and its group may connect.
    chmod(path, SYSTEM_MSG_SOCKET_MODE);
    add_monitor_handle(system_fd, handle_new_coming, as_arg(system_fd));
    return 0;
}

void restart_system_service()
{
    if (system_fd == 0) {
        start_system_service();
        return;
    }
    remove_monitor_handle(system_fd);
    add_monitor_handle(system_fd, handle_new_coming, as_arg(system_fd));
}

void stop_system_service()
{
    if (system_fd == 0)
        return;
    close_connect(system_fd);
    remove_monitor_handle(system_fd);
    system_fd = 0;
}

int handle_system_msg(int fd, SystemMsg* msg)
{
    // Negative types count as large.
    if (msg == nullptr || static_cast<uint32_t>(msg->type) > static_cast<uint32_t>(TYPE_MAX))
        return 0;
    auto& d = msg->data;
    switch (msg->type) {
    case TYPE_INPUT_INIT:
        TLOG(LEVEL_DEBUG, "++++system msg++++ TYPE_INPUT_INIT \n");
        // Screens 0 and 1 only: the IPC screen's receiver is the remote link.
        if (static_cast<uint32_t>(msg->scr_index) <= 1)
            handle_inputsys_init(msg->scr_index, fd);
        return 0;
    case TYPE_MODE_SET:
        TLOG(LEVEL_DEBUG, "++++system msg++++ TYPE_MODE_SET \n");
        return handle_multimode_set(msg->scr_index, &d.mode_info);
    case TYPE_MODE_GET:
        TLOG(LEVEL_DEBUG, "++++system msg++++ TYPE_MODE_GET \n");
        d.nValue = get_current_multimode();
        reply(fd, msg);
        return 0;
    case TYPE_LED_CTRL:
        TLOG(LEVEL_DEBUG, "++++system msg++++ TYPE_LED_CTRL \n");
        handle_led_ctrl(fd, &d.evt);
        return 0;
    case TYPE_IPC_WINDOW:
        TLOG(LEVEL_DEBUG, "++++system msg++++ TYPE_IPC_WINDOW \n");
        handle_ipc_win_modify(d.win.op, &d.win.ipc_win, msg->scr_index);
        return 0;
    case TYPE_IPC_CONNECTED:
        d.ipc_connected = ipcIsExist();
        reply(fd, msg);
        return 0;
    case TYPE_VNC_INPUT:
        TLOG(LEVEL_DEBUG, "vnc input\n");
        ProcessEvdevEvent(nullptr, &d.evt);
        return 0;
    case TYPE_SET_DIRECTION:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_SET_DIRECTION\n");
        handle_screen_direction_set(msg->scr_index, d.scr_direction);
        return 0;
    case TYPE_SET_CURSOR_TIME:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_SET_CURSOR_TIME\n");
        set_cursor_hide_timer_seconds(d.hide_seconds);
        return 0;
    case TYPE_SET_IPC_IP: {
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_SET_IPC_IP\n");
        // The text may fill the field without a terminator.
        char text[sizeof d.ip_addr + 1] = {};
        std::memcpy(text, d.ip_addr.data(), d.ip_addr.size());
        setIpcIpAddr(text);
        return 0;
    }
    case TYPE_SEND_IPC_CMD:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_SEND_IPC_CMD\n");
        sendCmdToIpc(d.cmd.ipc_cmd, d.cmd.lParam, d.cmd.rParam);
        return 0;
    case TYPE_GET_IPC_WIN_INFO:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_GET_IPC_WIN_INFO\n");
        get_ipc_win_info(&d.ipc_win_info);
        reply(fd, msg);
        return 0;
    case TYPE_ORVEL_EXT_SCR_EXIST:
        d.ipc_ext_scr_exist = getIpcExtScrExist();
        reply(fd, msg);
        return 0;
    case TYPE_SET_IPC_WINDOW:
        TLOG(LEVEL_DEBUG, "++++system msg++++ TYPE_SET_IPC_WINDOW \n");
        handle_ipcwindow_set(&d.ipc_win_info);
        return 0;
    case TYPE_GET_VERSION:
        // Bounded copies: each text is shorter than its field.
        copy_text(d.version.orvelVer, ipcVersion());
        copy_text(d.version.tactordVer, tactordVersion());
        reply(fd, msg);
        return 0;
    case TYPE_SET_MOUSE_SENSITIVITY:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_SET_MOUSE_SENSITIVITY\n");
        set_mouse_sensitivity(d.nValue);
        return 0;
    case TYPE_RECOVERY_SCREEN:
        TLOG(LEVEL_DEBUG, "++++system msg++++ TYPE_RECOVERY_SCREEN \n");
        return 0;
    case TYPE_ENTER_TS_CALI_MODE:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_ENTER_TS_CALI_MODE\n");
        ts_enter_calibrate_mode(msg->scr_index);
        return 0;
    case TYPE_GET_TS_CALI_POINT:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_GET_TS_CALI_POINT\n");
        ts_get_cali_point(msg->scr_index, static_cast<unsigned>(d.nValue));
        return 0;
    case TYPE_CALI_TS:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_CALI_TS\n");
        return calibrate(fd, msg);
    case TYPE_QUIT_TS_CALI_MODE:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_QUIT_TS_CALI_MODE\n");
        ts_quit_calibrate_mode(msg->scr_index);
        return 0;
    case TYPE_CHECK_TS_TYPE:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_CHECK_TS_TYPE\n");
        check_ts_type(fd, msg);
        return 0;
    case TYPE_SET_TS_CALI_PARA:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_SET_TS_CALI_PARA\n");
        set_cali_para(msg);
        return 0;
    case TYPE_GET_TS_CALI_PARA:
        TLOG(LEVEL_DEBUG, "++++system msg++++TYPE_GET_TS_CALI_PARA\n");
        get_cali_para(fd, msg);
        return 0;
    case TYPE_SWITCH_TOUCH_SCREEN:
        TLOG(LEVEL_WARN, "++++system msg++++ TYPE_SWITCH_TOUCH_SCREEN Index = %d, value=%d\n", msg->scr_index,
             d.nValue);
        ProcessSwitchTouchScreen(msg->scr_index, d.nValue);
        return 0;
    default:
        return 0;
    }
}
