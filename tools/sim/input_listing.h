// The kernel's text listing of input devices (/proc/bus/input/devices) for
// emulated devices: what the scanner service and tactorctl read to learn
// which device is which.
#pragma once

#include <string>
#include <vector>

#include "sim/devices.h"

namespace emul {

struct ListedNode {
    TestDevice dev;
    int node = -1;      // /dev/eventN
    std::string sysfs;  // the input device's path below /sys, e.g. /devices/platform/test/input/input20
};

// One block per node, in the kernel's format: I:, N: Name="...", P: Phys=,
// S: Sysfs=, U: Uniq=, H: Handlers=... eventN, and the B: capability
// bitmaps; blocks end with an empty line.
std::string input_devices_text(const std::vector<ListedNode>& nodes);

}  // namespace emul
