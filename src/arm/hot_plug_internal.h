// Hot-plug monitor internals visible to its tests.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

inline constexpr int EVT_SLOT_NUM = 16;
inline constexpr int EVT_PATH_LEN = 64;

struct EvtCtrl_t {
    char devnode[EVT_PATH_LEN];   // "/dev/event%d"
    char get_port[EVT_PATH_LEN];  // ".../device/phys"
    char get_name[EVT_PATH_LEN];  // ".../device/name"
    char syspath[EVT_PATH_LEN];   // phys contents read at appearance, line feed included
    int dev_flag;                 // registered with the registry
    int bExit;                    // from appearance to disappearance
    int bOpen;                    // the daemon, not the scanner service, owns the node
    int bScanCtrl;                // lent to the scanner service
    int evt_index;                // node number, set at appearance
};

struct TactordSwitchCtrl_t {
    // Guards evtctrl: held for a whole scan pass (registry calls included)
    // and by the scanner service's lend and return calls.
    std::mutex mutex_ctrl;
    std::array<EvtCtrl_t, EVT_SLOT_NUM> evtctrl;
};

extern TactordSwitchCtrl_t TactordCtrl;
extern std::atomic<int> gs_udev_fd;

// The four capability bitmaps of a node, as read with EVIOCGBIT.
struct evdev_bitmaps {
    std::array<uint8_t, 31> ev;    // request length EV_MAX
    std::array<uint8_t, 63> abs;   // ABS_MAX
    std::array<uint8_t, 767> key;  // KEY_MAX
    std::array<uint8_t, 15> rel;   // REL_MAX
};

// The classification proper, on bitmaps already read.
int classify_event_device(const evdev_bitmaps& bits, int* need_cali);

// Fills the three path buffers of every slot.
void hotplug_fill_paths();
// One scan pass over the sixteen slots, under mutex_ctrl.
void hotplug_scan_pass();
