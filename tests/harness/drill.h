// What the system tests share: a daemon under a scratch root with its devices
// emulated, its descriptors and memory read from /proc, its end by a signal,
// and probes that show it still serving within a bound.
#pragma once

#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "harness/display_client.h"
#include "sim/daemon_process.h"
#include "sim/dev_mod_cfg_emul.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "support/scratch_root.h"

using namespace std::chrono_literals;  // kServeBound and the default waits below

namespace testharness {

// The longest a client may wait for the main loop while another misbehaves: a pass takes 250 ms
// at most (a client found full waits once, up to 200 ms); generous, for a shared machine.
inline constexpr std::chrono::milliseconds kServeBound = 5s;

// Entries of /proc/<pid>/fd, -1 when unreadable; what each refers to, for a message.
int open_fds(pid_t pid);
std::string fd_targets(pid_t pid);
// VmRSS of /proc/<pid>/status in KiB, -1 when unreadable.
long rss_kib(pid_t pid);
// Reaps the child pid: the signal that ended it, 0 for an exit, nothing if it still runs after timeout.
std::optional<int> wait_end(pid_t pid, std::chrono::milliseconds timeout);
// A connection to the Unix socket path (below $TACTORD_ROOT) once the daemon listens; -1 after wait.
int connect_unix(const char* path, std::chrono::milliseconds wait = 10s);

// TYPE_MODE_GET tagged with tag in scr_index: true when its reply comes within bound (records skipped).
bool round_trip(DisplayClient& c, int32_t tag, std::chrono::milliseconds bound = kServeBound);
// A contact on a 0..4095 panel at (100, 200) and its release, played into node.
bool play_tap(emul::EvdevTestbed& bed, int node);
// The next n events of c (focus, cursor and lock-key records aside) as (type, code, value); fewer
// when they do not come within bound.
std::vector<std::tuple<int, int, int>> receive(DisplayClient& c, std::size_t n,
                                               std::chrono::milliseconds bound = kServeBound);
// That tap reaches c, the client of a 1920 x 1080 screen, whole within kServeBound (focus, cursor and
// lock-key records aside).
::testing::AssertionResult tap_served(emul::EvdevTestbed& bed, int node, DisplayClient& c);

// Round trips on a connection of its own, one every 100 ms, from construction (once served) until
// stop(), which closes it and returns how many went unanswered within kServeBound (a failed connection: one).
class ServingProbe {
public:
    explicit ServingProbe(const std::string& root);
    ~ServingProbe() { stop(); }
    int stop();
    int rounds() const { return rounds_.load(); }

private:
    std::atomic<bool> stop_{false};
    std::atomic<int> rounds_{0}, misses_{0};
    DisplayClient client_;
    std::thread thread_;
};

// The real daemon run in root_/work (the reference port.conf) against an emulated testbed and
// touch-lock controller; the tail of its output is shown when a test fails.
class DaemonTest : public ::testing::Test {
protected:
    void launch(const std::vector<std::string>& args = emul::kStdoutLogArgs, const emul::Launch& how = {});
    void TearDown() override;
    pid_t pid() const { return daemon_->pid(); }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/work"));
    emul::EvdevTestbed bed_;
    emul::DevModCfgEmulator driver_{bed_.testbed()};
    std::unique_ptr<emul::DaemonProcess> daemon_;
};

}  // namespace testharness
