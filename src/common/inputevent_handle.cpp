#include "common/inputevent_handle.h"

#include "common/inputdevice_manager.h"
#include "common/inputevent_handle_internal.h"
#include "common/log.h"
#include "common/ts_cali.h"

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
