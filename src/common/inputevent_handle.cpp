#include "common/inputevent_handle.h"

#include "common/inputdevice_manager.h"
#include "common/inputevent_handle_internal.h"
#include "common/log.h"
#include "common/screen_manager.h"
#include "common/ts_cali.h"

int g_MouseSensitivityValue = 5;
const std::array<float, 10> g_MouseSensitivityValueMap = {0.4F, 0.5F, 0.6F, 0.8F, 1.0F,
                                                           1.3F, 1.6F, 2.0F, 2.5F, 3.0F};
int ts_num_x = 4095;
int PID_flag = 0;
std::array<TouchScreenInfo, 2> g_TouchScreeenStatus = {{{1, {}}, {1, {}}}};

std::array<DownSendInfo, DOWN_SEND_INFO_MAX> downSendInfoArray{};
std::atomic<int> downSendInfoDevCount{0};
evdev_event_observer process_evdev_observer = nullptr;

namespace {

evdev_event_path choose_path(_InputDev* dev)
{
    if (dev == nullptr)
        return evdev_event_path::router;
    const ts_priv_data_s* ts = ts_get_private_data(dev->seat < 0 ? 0 : dev->seat);
    if (ts != nullptr && ts->mode.load(std::memory_order_relaxed) == 1)
        return evdev_event_path::cali_capture;
    if (dev->need_cali == 1)
        return evdev_event_path::raw_touch;
    return evdev_event_path::router;
}

}  // namespace

void ProcessEvdevEvent(_InputDev* dev, tactord::input_event* ev)
{
    if (ev == nullptr)
        return;
    TLOG(LEVEL_INFO, "event %s: type %u code %u value %d\n", dev != nullptr && dev->device != nullptr ? dev->device : "-",
         static_cast<unsigned>(ev->type), static_cast<unsigned>(ev->code), ev->value);
    const evdev_event_path path = choose_path(dev);
    if (process_evdev_observer != nullptr)
        process_evdev_observer(dev, ev, path);
    // The calibration capture, the raw touch parser and the router take the
    // event from here once the routing modules are in place.
}

void OnDevDelete(_InputDev* dev)
{
    if (dev == nullptr || dev->type != INPUT_TYPE_TOUCHSCREEN)
        return;
    const int n = downSendInfoDevCount.load(std::memory_order_relaxed);
    for (int i = 0; i < n && i < DOWN_SEND_INFO_MAX; ++i) {
        if (downSendInfoArray[i].dev == dev) {
            downSendInfoArray[i].bUsed.store(0, std::memory_order_relaxed);
            return;
        }
    }
}

void ProcessSwitchTouchScreen(int index, int open)
{
    // Taken as unsigned: a negative index is out of the table too.
    if (static_cast<unsigned>(index) >= g_TouchScreeenStatus.size()) {
        TLOG(LEVEL_ERROR, "nIndex = %d error .\n", index);
        return;
    }
    TLOG(LEVEL_WARN, "ProcessSwitchTouchScreen Index = %d nOpen= %d .\n", index, open);
    g_TouchScreeenStatus[index].nOpen = open;
    g_TouchScreeenStatus[index].time = {};
}

int get_focus_client(ScrInfo* scr)
{
    for (int i = 0; scr != nullptr && i < SCREEN_COUNT; ++i) {
        if (scr->client[i].focus == 1)
            return i;
    }
    return SCREEN_COUNT;
}

int GetFocusScreen()
{
    return get_focus_client(get_screen_info(MAIN_SCREEN));
}

int coordinate_convert(int seat, int x, int y, const int* param, int* out_x, int* out_y)
{
    if (param == nullptr || out_x == nullptr || out_y == nullptr)
        return -1;
    const int* p = param;
    if (p[6] == 0) {
        if (seat >= 0 && seat < TS_SEAT_MAX && cal_param_dat[seat][6] != 0) {
            p = cal_param_dat[seat].data();
        } else {
            p = DefaultCaliParam.data();
            TLOG(LEVEL_ERROR, "error cali param, please calibrate again! \n");
        }
    }
    // 64-bit sums: parameters set by a client may be anything. Each term is
    // below 2^62 in size, their sum is formed without overflow in unsigned
    // arithmetic and the quotient is cut to 32 bits like the result of the
    // 32-bit original (the caller clamps it to the panel anyway).
    const auto apply = [&](int k) {
        const uint64_t sum = static_cast<uint64_t>(static_cast<int64_t>(p[k])) +
                             static_cast<uint64_t>(static_cast<int64_t>(p[k + 1]) * x) +
                             static_cast<uint64_t>(static_cast<int64_t>(p[k + 2]) * y);
        const auto num = static_cast<int64_t>(sum);
        const int64_t scale = p[6];
        const int64_t q = scale == -1 ? static_cast<int64_t>(0 - sum) : num / scale;
        return static_cast<int>(q);
    };
    *out_x = apply(0);
    *out_y = apply(3);
    return 0;
}
