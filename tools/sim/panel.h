// The simulated panel: the board's devices emulated under umockdev (evdev
// nodes, the framebuffer, /dev/dev_mod_cfg), a keyboard-wedge barcode scanner
// and a CDC scanner on /dev/ttyACM0, the real tactord binary run under the
// umockdev preload in a sandbox ($TACTORD_ROOT), and display clients for
// screens 0 and 1 (tactord-events processes). Whatever the clients receive,
// whatever the daemon writes back to a device (keyboard LEDs) and what its
// scanner service logs goes to the transcript. $ROOT/proc/bus/input/devices
// lists the plugged devices as the kernel would.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/tactord_types.h"
#include "sim/daemon_process.h"
#include "sim/dev_mod_cfg_emul.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"
#include "sim/transcript.h"

namespace emul {

struct PanelOptions {
    std::string root;            // the sandbox: $TACTORD_ROOT, port.conf in root/work
    std::string port_conf;       // the seat file to use
    std::string events_binary;   // tactord-events
    std::string daemon_args = "-p 0 -d 2 -i 0";  // logs to standard output, warnings and errors
    std::vector<int> client_screens = {0, 1};    // the screens the panel's own display clients hold
    std::string touch_controller = "2151";       // the id in /proc/atmel_product, empty for no such file
};

class Panel {
public:
    Panel(Transcript& transcript, PanelOptions options);
    ~Panel();
    Panel(const Panel&) = delete;
    Panel& operator=(const Panel&) = delete;

    // Emulation, daemon, the two display clients, then the board's devices.
    bool start(std::string& error);
    bool daemon_alive();
    const std::string& root() const { return options_.root; }

    // A device of the board, or one plugged in from a recording's header.
    struct Device {
        std::string name;
        std::string what;
        TestDevice dev;
        int node = -1;  // /dev/eventN while plugged
        int fd = -1;    // the node's other end
        NodeOptions options = {};  // how its node misbehaves, if it does
    };
    std::vector<Device> devices() const;
    std::optional<Device> find(const std::string& name) const;
    // Adds a device that is not on the board (unplugged until plug()).
    bool add_device(const std::string& name, const std::string& what, const TestDevice& dev, std::string& error,
                    NodeOptions options = {});

    // Plugs a device in and waits until the daemon has classified it.
    bool plug(const std::string& name, std::string& error);
    bool unplug(const std::string& name, std::string& error);
    // Writes events into the device (time-stamped now), at most ten records
    // a write as a kernel node delivers them; shown in the transcript, as
    // summary when one is given.
    bool play(const std::string& name, const std::vector<tactord::input_event>& events, std::string& error,
              const std::string& summary = {});

    // Bytes written into the device's node as they are: a record cut short.
    bool play_raw(const std::string& name, const std::string& bytes, std::string& error);

    // The lock status the touch driver (/dev/dev_mod_cfg) reports for a
    // screen, as when the driver locks it on its own; false for no such screen.
    bool set_driver_lock(int screen, bool locked);

    // Sends the daemon signal every 0.1 ms from a thread of its own while
    // on: signals that land in the middle of whatever it does.
    bool flood(int signal, bool on, std::string& error);

    // The daemon's log: its length now, to look only at what comes later;
    // waiting for a text in it; what it holds from a mark on.
    std::size_t log_mark() const;
    bool log_wait(const std::string& text, std::size_t since, std::chrono::milliseconds timeout) const;
    std::string log_since(std::size_t since) const;

    // The CDC scanner's port.
    static constexpr int kCdcPort = 0;
    static constexpr const char* kCdcNode = "/dev/ttyACM0";
    // Bytes from the CDC scanner on /dev/ttyACM0. False when they could not
    // be written; lost set when no reader had the port open to take them.
    bool cdc_scan(const std::string& bytes, bool& lost, std::string& error);
    // Writes what the emulated /dev/fb0 shows as a PNG file.
    bool snapshot(const std::string& png_path, std::string& error) const;

    // Runs a tactorctl command in this process against the daemon; its
    // output goes to the transcript. Returns its exit status.
    int ctl(const std::vector<std::string>& args);

private:
    bool start_client(int screen, std::string& error);
    void read_client(int screen, pid_t pid, int fd);
    void watch_devices();
    // Shows the scanner service's new log lines.
    void follow_scan_log();
    Device* lookup(const std::string& name);
    // Rewrites $ROOT/proc/bus/input/devices; called with mutex_ held.
    void write_listing();

    Transcript& transcript_;
    PanelOptions options_;
    std::unique_ptr<EvdevTestbed> bed_;
    std::unique_ptr<FramebufferEmulator> fb_;
    std::unique_ptr<DevModCfgEmulator> dev_mod_cfg_;
    std::unique_ptr<DaemonProcess> daemon_;

    // Guards devices_ and the testbed, used by the command thread and the
    // device watcher.
    mutable std::mutex mutex_;
    std::vector<Device> devices_;
    int next_node_ = 0;

    std::vector<pid_t> clients_;
    std::vector<std::thread> readers_;  // one per client; each reaps its client
    std::thread watcher_;
    std::thread flood_;  // while a flood runs
    std::atomic<bool> flooding_{false};
    std::atomic<bool> stop_{false};
    std::size_t scan_log_read_ = 0;  // bytes of the scanner service's log shown (watcher thread only)
    std::string scan_log_partial_;   // a line not yet complete (watcher thread only)
};

}  // namespace emul
