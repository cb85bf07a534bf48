// A umockdev testbed of evdev nodes "/dev/eventN": sysfs name and phys in
// the kernel's layout, the capability ioctls answered from a TestDevice, and
// the node's other end for playing events in and reading what a reader
// writes back. It also carries CDC serial ports "/dev/ttyACMn" (a pty each).
// Create it before starting a daemon: the daemon inherits the testbed
// through the environment, and with it a PATH whose "rm" removes device
// nodes from the testbed only (umockdev does not redirect unlinking).
#pragma once

#include <umockdev.h>

#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "common/tactord_types.h"
#include "sim/daemon_process.h"
#include "sim/devices.h"

namespace emul {

struct NodeOptions {
    bool fail_ioctls = false;  // every ioctl fails with EIO
    bool with_phys = true;     // no "phys" attribute when false
    bool with_name = true;     // no "name" attribute when false
    bool input_dir = false;    // the node is /dev/input/eventN
};

class EvdevTestbed {
public:
    EvdevTestbed();
    ~EvdevTestbed();
    EvdevTestbed(const EvdevTestbed&) = delete;
    EvdevTestbed& operator=(const EvdevTestbed&) = delete;

    // Plugs dev in as /dev/event<node>. A node number is used once per
    // testbed (the emulation keeps the other end of an unplugged node): false
    // for a number already used.
    bool add(int node, const emul::TestDevice& dev, NodeOptions opts = {});
    // Unplugs /dev/event<node>.
    void remove(int node);

    // Writes the events into the node in the kernel's record layout of the
    // daemon served (daemon_is_target(): ARMv7 or x86-64), as one write, so a
    // reader sees them in one read.
    bool play(int node, const std::vector<tactord::input_event>& events);
    // Records in the layout of the daemon served, as read from a node's
    // other end (a partial record at the end is left out).
    std::vector<tactord::input_event> decode(const void* data, std::size_t len) const
    {
        return decode_records(arm32_records_, data, len);
    }
    // The same for a reader without a testbed: ARMv7 records when arm32.
    static std::vector<tactord::input_event> decode_records(bool arm32, const void* data, std::size_t len);
    // The size of one such record: 16 bytes on ARMv7, 24 on x86-64.
    std::size_t record_size() const;
    // Writes raw bytes into the node.
    bool write_raw(int node, const void* data, std::size_t len);
    // The testbed, for further emulated devices (a framebuffer).
    UMockdevTestbed* testbed() const { return testbed_; }

    // Events the reader wrote to the node, waiting up to timeout for at
    // least one.
    std::vector<tactord::input_event> written(int node, std::chrono::milliseconds timeout);

    // Plugs a CDC serial port in as /dev/ttyACM<port>.
    bool add_acm(int port);
    // Bytes arriving on the port, as the scanner sends them.
    bool write_acm(int port, const void* data, std::size_t len);
    // The scanner goes away: the port hangs up, so a reader's read fails.
    void hang_up_acm(int port);

private:
    struct Node {
        emul::TestDevice dev;
        NodeOptions opts;
        std::string input_syspath;  // the input device (name, phys)
        std::string event_syspath;  // its event node
        bool present = true;        // false once unplugged; the number stays used
    };

    static gboolean on_ioctl(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);
    gboolean handle_ioctl(UMockdevIoctlClient* client);
    int master_fd(int node);
    // The node's path: /dev/input/eventN when it was added so.
    std::string devnode_of(int node);

    UMockdevTestbed* testbed_;
    UMockdevIoctlBase* handler_;
    // Guards the nodes' presence: the ioctl handler runs on the testbed's worker thread.
    std::mutex mutex_;
    std::map<std::string, Node> nodes_;  // by "/dev/eventN"
    int next_input_ = 20;
    // The daemon reads ARMv7 records; fixed when the testbed is made.
    const bool arm32_records_;
};

inline tactord::input_event ev(uint16_t type, uint16_t code, int32_t value)
{
    return {0, 0, type, code, value};
}

}  // namespace emul
