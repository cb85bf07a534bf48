// Start-up and memory of the real daemon.
//
// startup: the time from starting the process to its control socket
// accepting a connection, with no input devices (no umockdev preload), and
// its resident memory (VmRSS) a second later.
//
// hour_of_input: the daemon under the umockdev preload with a board's worth
// of emulated devices (a multi-touch panel on the main screen's seat, a
// keyboard, a mouse on the sub screen's seat, the framebuffer and the
// touch-lock device) and two display clients registered and reading; an
// hour of a busy panel's input is replayed as fast as the daemon takes it,
// and VmRSS is read after start, after the replay, and the peak (VmHWM).
//
//   startup_rss [--daemon=PATH] [--benchmark_filter=...]
#include <linux/input.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "common/system_msg.h"
#include "daemon_run.h"
#include "sim/dev_mod_cfg_emul.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"

namespace {

using namespace std::chrono_literals;
using emul::ev;
using Events = std::vector<tactord::input_event>;

benchrun::DaemonCommand g_cmd;

void startup(benchmark::State& state)
{
    long rss = 0;
    for (auto _ : state) {
        benchrun::Sandbox box;
        benchrun::Daemon daemon(g_cmd, box);
        std::chrono::steady_clock::time_point ready;
        if (!box.ok() || !daemon.wait_accepting(box.control_socket(), 10s, &ready)) {
            state.SkipWithError("the daemon did not start");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(ready - daemon.started_at()).count());
        std::this_thread::sleep_for(1s);
        rss = benchrun::status_kib(daemon.pid(), "VmRSS");
    }
    state.counters["rss_kib"] = static_cast<double>(rss);
}

// An hour of a busy panel, by count: a touch every three seconds, each
// 0.4 s of contact at 60 reports a second; ten minutes of mouse motion at
// 120 reports a second with a click every six seconds; 3000 keystrokes.
constexpr int kTouches = 1200;
constexpr int kMovesPerTouch = 24;
constexpr int kMouseReports = 72000;
constexpr int kClicks = 600;
constexpr int kKeystrokes = 3000;

constexpr int kMouseNode = 1;
constexpr int kPanelNode = 2;
constexpr int kKeyboardNode = 3;

// One write into a node: the emulated node is a byte stream, so a write of
// at most ten records reaches the reader whole.
struct Play {
    int node;
    Events events;
};

std::vector<Play> make_hour()
{
    const auto syn = ev(EV_SYN, SYN_REPORT, 0);
    std::vector<Play> plays;
    // Interleaved as a person would: the devices take turns by the share of
    // the hour each has.
    for (int t = 0; t < kTouches; ++t) {
        const int x = 200 + (t * 37) % 1500;
        const int y = 100 + (t * 53) % 800;
        plays.push_back({kPanelNode,
                         {ev(EV_ABS, ABS_MT_TRACKING_ID, t), ev(EV_ABS, ABS_MT_POSITION_X, x),
                          ev(EV_ABS, ABS_MT_POSITION_Y, y), ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, x),
                          ev(EV_ABS, ABS_Y, y), syn}});
        for (int m = 1; m <= kMovesPerTouch; ++m)
            plays.push_back({kPanelNode,
                             {ev(EV_ABS, ABS_MT_POSITION_X, x + m), ev(EV_ABS, ABS_MT_POSITION_Y, y + m),
                              ev(EV_ABS, ABS_X, x + m), ev(EV_ABS, ABS_Y, y + m), syn}});
        plays.push_back({kPanelNode, {ev(EV_ABS, ABS_MT_TRACKING_ID, -1), ev(EV_KEY, BTN_TOUCH, 0), syn}});

        for (int r = 0; r < kMouseReports / kTouches; ++r)
            plays.push_back({kMouseNode, {ev(EV_REL, REL_X, (r % 7) - 3), ev(EV_REL, REL_Y, (r % 5) - 2), syn}});
        for (int c = 0; c < kClicks / kTouches + (t % 2 == 0 ? 1 : 0); ++c)
            plays.push_back({kMouseNode, {ev(EV_KEY, BTN_LEFT, 1), syn, ev(EV_KEY, BTN_LEFT, 0), syn}});

        const int keys = kKeystrokes / kTouches + (t % 2 == 0 ? 1 : 0);
        for (int k = 0; k < keys; ++k) {
            const uint16_t code = static_cast<uint16_t>(KEY_Q + (t + k) % 10);
            plays.push_back({kKeyboardNode, {ev(EV_KEY, code, 1), syn, ev(EV_KEY, code, 0), syn}});
        }
    }
    return plays;
}

// A display client registered for a screen, read continuously on its own
// thread so that the daemon's sends never back up.
class Reader {
public:
    Reader(const std::string& socket_path, int screen) : fd_(benchrun::connect_control(socket_path))
    {
        SystemMsg init{};
        init.type = TYPE_INPUT_INIT;
        init.scr_index = screen;
        if (fd_ >= 0 && write(fd_, &init, sizeof init) == static_cast<ssize_t>(sizeof init))
            thread_ = std::thread([this] {
                uint8_t buf[4096];
                while (!stop_.load()) {
                    pollfd p{fd_, POLLIN, 0};
                    if (poll(&p, 1, 50) <= 0)
                        continue;
                    const ssize_t n = read(fd_, buf, sizeof buf);
                    if (n <= 0)
                        break;
                    bytes_.fetch_add(n);
                }
            });
    }
    ~Reader()
    {
        stop_.store(true);
        if (thread_.joinable())
            thread_.join();
        if (fd_ >= 0)
            close(fd_);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    // 16-byte units read (events; a 64-byte reply counts four).
    long records() const { return bytes_.load() / 16; }

private:
    int fd_;
    std::atomic<bool> stop_{false};
    std::atomic<long> bytes_{0};
    std::thread thread_;
};

// Waits until no reader has received anything for quiet.
void wait_quiet(const std::vector<std::unique_ptr<Reader>>& readers, std::chrono::milliseconds quiet)
{
    auto total = [&] {
        long n = 0;
        for (const auto& r : readers)
            n += r->records();
        return n;
    };
    for (long last = -1, now = total(); now != last; now = total()) {
        last = now;
        std::this_thread::sleep_for(quiet);
    }
}

void hour_of_input(benchmark::State& state)
{
    const std::vector<Play> plays = make_hour();
    long events = 0;
    for (const Play& p : plays)
        events += static_cast<long>(p.events.size());

    long rss_start = 0, rss_after = 0, hwm = 0, delivered = 0;
    for (auto _ : state) {
        emul::EvdevTestbed bed;
        emul::FramebufferEmulator fb(bed.testbed(), 1280, 800);
        emul::DevModCfgEmulator lock(bed.testbed());
        namespace dev = emul::devices;
        if (!bed.add(kMouseNode, dev::mouse()) || !bed.add(kPanelNode, dev::multi_touch_screen()) ||
            !bed.add(kKeyboardNode, dev::full_keyboard())) {
            state.SkipWithError("the testbed refused a device");
            break;
        }
        benchrun::Sandbox box;
        benchrun::Daemon daemon(g_cmd, box, {{"LD_PRELOAD", "libumockdev-preload.so.0"}});
        if (!box.ok() || !daemon.wait_accepting(box.control_socket(), 10s)) {
            state.SkipWithError("the daemon did not start");
            break;
        }
        std::vector<std::unique_ptr<Reader>> readers;
        for (int screen : {0, 1})
            readers.push_back(std::make_unique<Reader>(box.control_socket(), screen));
        // The hot-plug poll (every 200 ms) has registered the three nodes,
        // and the last services are up.
        std::this_thread::sleep_for(2s);
        rss_start = benchrun::status_kib(daemon.pid(), "VmRSS");

        const auto t0 = std::chrono::steady_clock::now();
        bool played = true;
        for (const Play& p : plays)
            played = played && bed.play(p.node, p.events);
        wait_quiet(readers, 500ms);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
        if (!played) {
            state.SkipWithError("a node refused the replay");
            break;
        }
        rss_after = benchrun::status_kib(daemon.pid(), "VmRSS");
        hwm = benchrun::status_kib(daemon.pid(), "VmHWM");
        delivered = 0;
        for (const auto& r : readers)
            delivered += r->records();
    }
    state.counters["events_played"] = static_cast<double>(events);
    state.counters["records_delivered"] = static_cast<double>(delivered);
    state.counters["rss_start_kib"] = static_cast<double>(rss_start);
    state.counters["rss_after_kib"] = static_cast<double>(rss_after);
    state.counters["hwm_kib"] = static_cast<double>(hwm);
}

}  // namespace

int main(int argc, char** argv)
{
    g_cmd.binary = benchrun::take_option(&argc, argv, "daemon", TACTORD_BINARY);
    benchmark::Initialize(&argc, argv);
    benchmark::RegisterBenchmark("startup", startup)->Iterations(5)->UseManualTime()->Unit(benchmark::kMillisecond);
    benchrun::once_in_seconds(benchmark::RegisterBenchmark("hour_of_input", hour_of_input));
    return benchrun::run_registered();
}
