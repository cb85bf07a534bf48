// Arbitrary 64-byte control records (a short tail is dropped) through
// handle_system_msg, with the real screen model, lock-key and calibration
// tables behind it; replies and events are drained after every record.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "common/OrvelClient_internal.h"
#include "common/cursor_timer_internal.h"
#include "common/inputdevice_manager.h"
#include "common/inputdevice_manager_internal.h"
#include "common/inputevent_handle.h"
#include "common/keyboard_manager.h"
#include "common/screen_manager_internal.h"
#include "common/system_msg.h"
#include "common/ts_cali.h"
#include "fuzz_scratch.h"

namespace {

int conn = -1;       // the daemon's end of the control connection
int peer = -1;       // the client's end, drained
int kbd_read = -1;   // the keyboard node's other end, drained
_InputDev keyboard;  // a keyboard of screen 0 whose node is a pipe

bool set_up()
{
    if (!fuzzsupport::set_up_daemon_scratch())
        return false;
    int sv[2];
    int p[2];
    if (!fuzzsupport::nonblocking_pair(sv) || pipe2(p, O_NONBLOCK) != 0)
        return false;
    conn = sv[0];
    peer = sv[1];
    kbd_read = p[0];
    keyboard.fd = p[1];
    keyboard.type = INPUT_TYPE_KEYBOARD;
    keyboard.disp = 0;
    return true;
}

void add_touchscreen(int seat, int ts_type)
{
    auto* ts = new ts_priv_data_s{};
    ts->ts_id = seat;
    ts->ts_type = ts_type;
    if (ts_set_private_data(seat, ts) != 0)
        delete ts;
}

// The daemon as start-up leaves it, with a calibratable touchscreen on seat
// 0, one that cannot be calibrated on seat 1 and a keyboard on screen 0.
void reset()
{
    for (auto& c : gs_clients)
        c.store(0);
    screen_model_reset();
    output_info_init();
    input_init();
    ipc_client_reset();
    for (int seat = 0; seat < TS_SEAT_MAX; ++seat)
        ts_free_private_data(seat);
    add_touchscreen(0, 0);
    add_touchscreen(1, 1);
    cal_param_dat = {};
    g_MouseSensitivityValue = 5;
    g_TouchScreeenStatus = {{{1, {}}, {1, {}}}};
    time_out.store(30);
    input_info[0].store(&keyboard);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = set_up();
    if (!ready)
        return 0;
    reset();
    for (size_t at = 0; at + SYSTEM_MSG_SIZE <= size; at += SYSTEM_MSG_SIZE) {
        SystemMsg msg;
        std::memcpy(&msg, data + at, sizeof msg);
        handle_system_msg(conn, &msg);
        fuzzsupport::drain(peer);
        fuzzsupport::drain(kbd_read);
    }
    input_info[0].store(nullptr);
    return 0;
}
