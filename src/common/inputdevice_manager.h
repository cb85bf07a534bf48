// The input device registry: every evdev node the daemon reads, bound to a
// seat from "port.conf", a screen and the main loop; plus the descriptors of
// the three screen clients.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/tactord_types.h"

namespace tactord {
// An axis range, laid out as the kernel's input_absinfo.
struct input_absinfo {
    int32_t value;
    int32_t minimum;
    int32_t maximum;
    int32_t fuzz;
    int32_t flat;
    int32_t resolution;
};
static_assert(sizeof(input_absinfo) == 24);
static_assert(offsetof(input_absinfo, maximum) == 8);
static_assert(offsetof(input_absinfo, resolution) == 20);
}  // namespace tactord

// One open evdev node; heap record owned by the registry.
struct _InputDev {
    // Next device of the same seat chain. Appended by the hot-plug thread
    // while the event thread may walk the chain.
    std::atomic<_InputDev*> next{nullptr};
    char* name = nullptr;    // seat role: "touchscreen_main", "touchscreen_sub"
    char* path = nullptr;    // kernel physical path, "non_usb_path" for non-USB
    char* device = nullptr;  // "/dev/event%d"
    int usb = 0;             // 1 for seat and extern devices
    int type = 0;            // INPUT_TYPE_*
    int disp = 0;            // screen model now fed (input_dev_screen)
    int config_disp = 0;     // screen from the configuration
    int fd = 0;              // open node; 0 or negative when the open failed
    int seat = 0;            // -1 (or 0) for non-USB inputs
    std::array<tactord::input_absinfo, 2> abs{};  // X and Y range of a touchscreen
    int need_cali = 0;       // 1 when the touchscreen needs calibration
};

// Hand-over record of the hot-plug monitor.
struct _HotDev {
    const char* syspath;
    const char* name;
    const char* devnode;
    int type;
    int need_cali;
};

inline constexpr int INPUT_SEAT_MAX = 15;
inline constexpr int NONUSB_INPUT_MAX = 15;
inline constexpr int EXTERN_INPUT_MAX = 15;

// Action 1 adds, 0 removes; anything else returns 0.
int do_action(int action, const _HotDev* dev);
int handle_add_device(const char* syspath, const char* name, const char* devnode, int type, int need_cali);
int handle_remove_device(const char* syspath);

// Head of the seat's chain for seats 1..15, else null.
_InputDev* get_input_info(int seat);

_InputDev* new_input_dev(const char* name, const char* path, const char* device, int config_disp, int type);
// Destroys dev and every record chained behind it.
void delete_input_dev(_InputDev* dev);

// Screen-client registration from the control socket and the links, always
// under the loop lock (LockIpcSocket), like every send to a client.
int find_index_by_fd(int fd);
int handle_inputsys_init(int index, int fd);
// Releases every screen fd held: 0, or -1 when it held none or held the main
// screen ("Main screen closed").
int handle_inputsys_close(int fd);

// Control-connection descriptor per screen; below 1 means none. Written only
// under the loop lock.
extern std::array<std::atomic<int>, SCREEN_COUNT> gs_clients;
