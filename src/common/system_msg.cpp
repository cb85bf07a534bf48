#include "common/system_msg.h"

#include <sys/stat.h>
#include <unistd.h>

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>

#include "arm/input_manager.h"
#include "arm/screen_device_manager.h"
#include "arm/IndpClient.h"
#include "common/OrvelClient.h"
#include "common/client_send.h"
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

// How long the rest of a record may take once its first bytes are in. The
// main loop does not wait for it: the bytes are kept and the connection is
// served again when more arrive, so a client that sends half a record never
// holds up the others.
constexpr int64_t RECORD_WAIT_MS = 100;
// How long the listening socket rests after accept found no descriptor free.
constexpr int64_t ACCEPT_PAUSE_MS = 100;

// A record that has arrived in part. Main loop only (under the loop lock);
// one per served connection at most, so the monitor list's size suffices.
struct PartialRecord {
    int fd = 0;  // 0: free
    int have = 0;
    int64_t deadline_ms = 0;
    std::array<uint8_t, SYSTEM_MSG_SIZE> bytes{};
};
std::array<PartialRecord, EVENT_LIST_MAX> partials{};

// While descriptors run out the listening socket is out of the main loop
// until this time (0: it is served). Main loop only.
int64_t accept_paused_until_ms = 0;

PartialRecord* partial_of(int fd)
{
    for (PartialRecord& p : partials) {
        if (p.fd == fd)
            return &p;
    }
    return nullptr;
}

void forget_partial(int fd)
{
    if (PartialRecord* p = fd > 0 ? partial_of(fd) : nullptr)
        *p = {};
}

// The end of a control connection: out of the loop, every screen it held
// released, closed.
void close_connection(int fd)
{
    remove_monitor_handle(fd);
    handle_inputsys_close(fd);
    forget_partial(fd);
    client_send_forget(fd);
    close_connect(fd);
}

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
    client_send(fd, msg, sizeof *msg);
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
    const int listen_fd = from_arg(arg);
    const int client = get_new_comming_client(listen_fd);
    if (client < 1) {
        if (errno == EMFILE || errno == ENFILE) {
            // No descriptor to be had: the pending connection stays readable,
            // so the loop would call again at once for as long as the
            // shortage lasts. The listener rests a little instead.
            remove_monitor_handle(listen_fd);
            accept_paused_until_ms = monotonic_ms() + ACCEPT_PAUSE_MS;
        }
        return -1;
    }
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
    PartialRecord* part = partial_of(fd);
    PartialRecord fresh;
    PartialRecord& rec = part != nullptr ? *part : fresh;
    const ssize_t n = recv(fd, rec.bytes.data() + rec.have, rec.bytes.size() - static_cast<std::size_t>(rec.have),
                           MSG_DONTWAIT);
    if (n == 0) {
        TLOG(LEVEL_DEBUG, "Server closed connection\n");
        close_connection(fd);
        return 0;
    }
    if (n < 0) {
        if (errno == EAGAIN || errno == EINTR)
            return 0;  // nothing after all; the connection stays
        TLOG(LEVEL_ERROR, "recv,err is %d", errno);
        close_connection(fd);
        return 0;
    }
    rec.have += static_cast<int>(n);
    if (rec.have < static_cast<int>(SYSTEM_MSG_SIZE)) {
        if (part == nullptr) {
            part = partial_of(0);
            if (part == nullptr) {  // cannot happen: one slot per served connection
                close_connection(fd);
                return 0;
            }
            *part = rec;
            part->fd = fd;
            part->deadline_ms = monotonic_ms() + RECORD_WAIT_MS;
        }
        return 0;
    }
    SystemMsg msg;
    std::memcpy(&msg, rec.bytes.data(), sizeof msg);
    if (part != nullptr)
        *part = {};
    return handle_system_msg(fd, &msg);
}

int system_service_housekeeping()
{
    const int64_t now = monotonic_ms();
    int64_t next = -1;
    auto sooner = [&](int64_t due) {
        if (next < 0 || due - now < next)
            next = due - now;
    };
    for (PartialRecord& p : partials) {
        if (p.fd == 0)
            continue;
        if (now < p.deadline_ms) {
            sooner(p.deadline_ms);
            continue;
        }
        // The rest of the record never came: the connection is dropped.
        const int fd = p.fd;
        TLOG(LEVEL_ERROR, "recv_need_len_data failed needlen =%d, nrecvLen=%d, ncount=%d\n",
             static_cast<int>(SYSTEM_MSG_SIZE), p.have, 0);
        close_connection(fd);
    }
    if (accept_paused_until_ms != 0) {
        if (now >= accept_paused_until_ms) {
            accept_paused_until_ms = 0;
            // A list filled meanwhile keeps it resting: tried again later.
            if (system_fd > 0 && add_monitor_handle(system_fd, handle_new_coming, as_arg(system_fd)) != 0) {
                accept_paused_until_ms = now + ACCEPT_PAUSE_MS;
                sooner(accept_paused_until_ms);
            }
        } else {
            sooner(accept_paused_until_ms);
        }
    }
    return static_cast<int>(next);
}

void drop_client_connection(int fd)
{
    if (fd <= 0 || fd == system_fd)
        return;
    // The links have their own ends, which also bring them up again.
    if (fd == getIpcHanle()) {
        handleIPCDisconnected(fd);
        return;
    }
    if (fd == gs_indpfd.load()) {
        handleINDPDisconnected(fd);
        return;
    }
    close_connection(fd);
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
    accept_paused_until_ms = 0;
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
