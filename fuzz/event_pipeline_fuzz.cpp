// Arbitrary device records through the event pipeline: a 16-byte set-up
// (see reset), then 17-byte records of a device selector and an input_event.
// Six multi-touch touchscreens are more than the tracker has records for;
// selector 9 is the control socket's injection without a device.
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <climits>
#include <cstring>
#include <string>

#include "common/OrvelClient.h"
#include "common/OrvelClient_internal.h"
#include "common/inputdevice_manager.h"
#include "common/inputevent_handle_internal.h"
#include "common/keyboard_manager.h"
#include "common/screen_manager_internal.h"
#include "common/ts_cali.h"
#include "fuzz_scratch.h"

namespace {

constexpr std::size_t SETUP = 16;
constexpr std::size_t RECORD = 1 + sizeof(tactord::input_event);
constexpr int DEVICES = 9;

std::array<int, SCREEN_COUNT> peer{-1, -1, -1};  // the clients' ends, drained
std::array<_InputDev, DEVICES> devs;
char role_main[] = "touchscreen_main";
char role_sub[] = "touchscreen_sub";
char non_usb[] = "non_usb_path";
char usb_port[] = "usb-musb-hdrc.0-1/input0";

void describe(_InputDev& d, char* role, char* path, int type, int seat, int need_cali)
{
    d.name = role;
    d.path = path;
    d.type = type;
    d.seat = seat;
    d.usb = path == usb_port ? 1 : 0;
    d.config_disp = role == role_sub ? 1 : 0;
    d.need_cali = need_cali;
}

bool set_up()
{
    if (!fuzzsupport::set_up_daemon_scratch())
        return false;
    mkdir((fuzzsupport::scratch + "/proc").c_str(), 0700);
    for (int s = 0; s < SCREEN_COUNT; ++s) {
        int sv[2];
        if (!fuzzsupport::nonblocking_pair(sv))
            return false;
        gs_clients[s].store(sv[0]);
        peer[s] = sv[1];
    }
    describe(devs[0], role_sub, usb_port, INPUT_TYPE_MOUSE, 2, 0);
    describe(devs[1], role_sub, usb_port, INPUT_TYPE_KEYBOARD, 1, 0);
    describe(devs[2], role_main, non_usb, INPUT_TYPE_TOUCHSCREEN, -1, 1);
    for (int i = 3; i < DEVICES; ++i)
        describe(devs[i], i % 2 == 0 ? role_sub : role_main, usb_port, INPUT_TYPE_TOUCHSCREEN, i, 0);
    return true;
}

void set_seat(int seat, bool calibrating, uint8_t point)
{
    auto* ts = new ts_priv_data_s{};
    ts->ts_id = seat;
    ts->mode.store(calibrating ? 1 : 0);
    ts->cali_data.cur_id.store(point);
    if (ts_set_private_data(seat, ts) != 0)
        delete ts;
}

// The daemon as start-up leaves it, then the input's set-up: mode and
// placement grid, IPC link and window, switched-off touchscreens, calibrating
// seats, controller id, sensitivity.
void reset(const uint8_t* s)
{
    screen_model_reset();
    pipeline_reset();
    input_init();
    output_info_init();
    ipc_client_reset();
    for (auto& d : devs)
        d.abs = {{{0, 0, 4095, 0, 0, 0}, {0, 0, 4095, 0, 0, 0}}};
    MultiModeInfo mode{};
    mode.mode = (s[0] & 3) == 1 ? MODE_EXTERN : (s[0] & 3) == 2 ? MODE_DOUBLE_PLAYER : MODE_CLONE;
    if ((s[0] & 4) != 0)
        mode.mode |= MODE_IPC_EXTERN;
    for (int i = 0; i < GRID_CELLS; ++i)
        mode.monitor_pos[i] = s[1 + i] % 4;
    handle_multimode_set(s[0] >> 6 & 1, &mode);
    const uint8_t flags = s[10];
    gs_ipcClientExist.store(flags & 1);
    gs_ipcType = flags >> 2 & 1;
    if ((flags & 2) != 0) {
        IpcWinInfo win{1, s[0] >> 7, {s[13] * 8, s[13] * 8 + s[14] * 8, s[15] * 4, s[15] * 4 + 400}};
        handle_ipcwindow_set(&win);
        RECT_BOX cut{win.ipcWindow.x1 + 10, win.ipcWindow.x1 + 60, win.ipcWindow.y1, win.ipcWindow.y1 + 50};
        handle_ipc_win_modify(OP_IPC_WIN_ADD, &cut, win.index);
    }
    ProcessSwitchTouchScreen(0, flags >> 3 & 1 ? 0 : 1);
    ProcessSwitchTouchScreen(1, flags >> 4 & 1 ? 0 : 1);
    set_seat(0, (flags & 0x20) != 0, s[12] % 7);
    set_seat(5, (flags & 0x80) != 0, s[12] % 7);
    if (FILE* f = std::fopen((fuzzsupport::scratch + "/proc/atmel_product").c_str(), "w")) {
        std::fputs((flags & 0x40) != 0 ? "214e" : "2151", f);
        std::fclose(f);
    }
    g_MouseSensitivityValue = s[11] % 12;
}

// The controller identification keeps its descriptor open (as the daemon
// always has); here, where it runs for every input, those descriptors are
// closed again so that a long run does not use up the process's table.
void close_identification_descriptors()
{
    for (int fd = 3; fd < 256; ++fd) {
        char link[PATH_MAX];
        const std::string proc = "/proc/self/fd/" + std::to_string(fd);
        const ssize_t n = readlink(proc.c_str(), link, sizeof link - 1);
        if (n > 0 && std::string(link, static_cast<std::size_t>(n)).ends_with("/proc/atmel_product"))
            close(fd);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = set_up();
    if (!ready || size < SETUP)
        return 0;
    reset(data);
    for (size_t at = SETUP; at + RECORD <= size; at += RECORD) {
        tactord::input_event ev;
        std::memcpy(&ev, data + at + 1, sizeof ev);
        const int which = data[at] % (DEVICES + 1);
        ProcessEvdevEvent(which < DEVICES ? &devs[which] : nullptr, &ev);
        for (int fd : peer)
            fuzzsupport::drain(fd);
    }
    for (int seat : {0, 5})
        ts_free_private_data(seat);
    close_identification_descriptors();
    return 0;
}
