// What the fault drills share: the daemon's descriptors and memory read from
// /proc, its end by a signal, and probes that show it still serving: a
// control round trip and a tap on a panel, each within a bound.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "harness/display_client.h"
#include "sim/evdev_testbed.h"

namespace testharness {

using namespace std::chrono_literals;

// The longest a well-behaved client may have to wait for the main loop while
// another misbehaves: a pass lasts about 250 ms at most whatever the clients
// do (nothing waits for half a record; a client found full waits once, up to
// 200 ms). Generous, for a machine shared with other tests.
inline constexpr std::chrono::milliseconds kServeBound = 5s;

// Entries of /proc/<pid>/fd, -1 when unreadable.
int open_fds(pid_t pid);
// What each of pid's descriptors refers to, for a message.
std::string fd_targets(pid_t pid);
// VmRSS of /proc/<pid>/status in KiB, -1 when unreadable.
long rss_kib(pid_t pid);
// Waits for the child pid to end; the signal that ended it, 0 for a normal
// exit, nothing if it still runs after timeout. Reaps it.
std::optional<int> wait_end(pid_t pid, std::chrono::milliseconds timeout);

// A control round trip: TYPE_MODE_GET tagged with tag in scr_index, true
// when its reply comes within bound (other records in between are skipped).
bool round_trip(DisplayClient& c, int32_t tag, std::chrono::milliseconds bound = kServeBound);

// A contact on a 0..4095 panel at (100, 200) and its release, played into node.
bool play_tap(emul::EvdevTestbed& bed, int node);
// What a client of a 1920 x 1080 screen receives for that tap.
inline const std::vector<std::tuple<int, int, int>> kTapEvents = {
    {1, 272, 1}, {3, 0, 46}, {3, 1, 52}, {0, 0, 0}, {1, 272, 0}, {0, 0, 0}};
// The next n events of c (focus, cursor and lock-key records aside) as (type, code,
// value); fewer when they do not come within bound.
std::vector<std::tuple<int, int, int>> receive(DisplayClient& c, std::size_t n,
                                               std::chrono::milliseconds bound = kServeBound);

// Round trips on a connection of its own, one every 100 ms, from
// construction until stop(); counts those not answered within kServeBound.
// The connection is served once before the constructor returns; stop()
// closes it.
class ServingProbe {
public:
    explicit ServingProbe(const std::string& root);
    ~ServingProbe();
    ServingProbe(const ServingProbe&) = delete;
    ServingProbe& operator=(const ServingProbe&) = delete;

    // Stops the probe; the number of round trips that went unanswered (a
    // connection that failed counts as one).
    int stop();
    int rounds() const { return rounds_.load(); }

private:
    std::atomic<bool> stop_{false};
    std::atomic<int> rounds_{0};
    std::atomic<int> misses_{0};
    DisplayClient client_;
    std::thread thread_;
};

}  // namespace testharness
