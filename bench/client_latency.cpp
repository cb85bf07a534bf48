// Latency of the real daemon from a node write to a healthy client's
// receive, with and without a client that stops reading.
//
// The daemon runs under the umockdev preload with a keyboard on the main
// screen's seat and a mouse on the sub screen's, in double-player mode, so
// that the keyboard's records go to the client of screen 0 and the mouse's
// to the client of screen 1. Client 0 always reads. Each keystroke written
// into the keyboard node is timed until its key record reaches client 0;
// meanwhile the mouse streams motion towards screen 1, a report a
// millisecond.
//
// all_reading:     client 1 reads too.
// one_never_reads: client 1 registered and never reads: its socket fills,
//                  the daemon drops its records and, after two seconds,
//                  disconnects it. The daemon must not abort, and client 0's
//                  latency must stay where it was.
//
//   client_latency [--daemon=PATH] [--benchmark_filter=...]
#include <linux/input.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "common/system_msg.h"
#include "daemon_run.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using emul::ev;

benchrun::DaemonCommand g_cmd;

constexpr int kMouseNode = 1;     // seat 2: the sub screen's
constexpr int kKeyboardNode = 3;  // seat 1: the main screen's
constexpr int kKeystrokes = 600;
constexpr auto kKeyGap = 3ms;
constexpr auto kMousePeriod = 1ms;

bool send_request(int fd, int32_t type, int32_t scr_index, int32_t mode = 0)
{
    SystemMsg msg{};
    msg.type = type;
    msg.scr_index = scr_index;
    msg.data.mode_info.mode = mode;
    return write(fd, &msg, sizeof msg) == static_cast<ssize_t>(sizeof msg);
}

// Client 0: reads every record and notes when each key press arrived.
class TimedReader {
public:
    explicit TimedReader(int fd) : fd_(fd)
    {
        thread_ = std::thread([this] { run(); });
    }
    ~TimedReader()
    {
        stop_.store(true);
        thread_.join();
    }
    TimedReader(const TimedReader&) = delete;
    TimedReader& operator=(const TimedReader&) = delete;

    // Waits for the press of code; its arrival time, or nothing in time.
    bool wait_press(uint16_t code, Clock::time_point* at)
    {
        const auto deadline = Clock::now() + 2s;
        while (Clock::now() < deadline) {
            {
                std::lock_guard<std::mutex> g(lock_);
                if (seen_[code] != Clock::time_point{}) {
                    *at = seen_[code];
                    seen_[code] = {};
                    return true;
                }
            }
            std::this_thread::sleep_for(50us);
        }
        return false;
    }

private:
    void run()
    {
        std::array<uint8_t, 4096> buf{};
        std::size_t held = 0;
        while (!stop_.load()) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 20) <= 0)
                continue;
            const ssize_t n = read(fd_, buf.data() + held, buf.size() - held);
            if (n <= 0)
                return;
            const auto now = Clock::now();
            held += static_cast<std::size_t>(n);
            std::size_t at = 0;
            for (; held - at >= sizeof(tactord::input_event); at += sizeof(tactord::input_event)) {
                tactord::input_event e;
                std::memcpy(&e, buf.data() + at, sizeof e);
                if (e.type == EV_KEY && e.value == 1 && e.code < seen_.size()) {
                    std::lock_guard<std::mutex> g(lock_);
                    seen_[e.code] = now;
                }
            }
            std::memmove(buf.data(), buf.data() + at, held - at);
            held -= at;
        }
    }

    int fd_;
    std::atomic<bool> stop_{false};
    std::mutex lock_;  // guards seen_
    std::array<Clock::time_point, KEY_MAX + 1> seen_{};
    std::thread thread_;
};

// Client 1 when it reads: drains its socket.
void drain(int fd, const std::atomic<bool>& stop)
{
    uint8_t buf[4096];
    while (!stop.load()) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 20) > 0 && read(fd, buf, sizeof buf) <= 0)
            return;
    }
}

void latency(benchmark::State& state, bool second_reads)
{
    std::vector<double> ms;
    bool alive = true;
    for (auto _ : state) {
        emul::EvdevTestbed bed;
        namespace dev = emul::devices;
        if (!bed.add(kMouseNode, dev::mouse()) || !bed.add(kKeyboardNode, dev::full_keyboard())) {
            state.SkipWithError("the testbed refused a device");
            return;
        }
        benchrun::Sandbox box;
        benchrun::Daemon daemon(g_cmd, box, {{"LD_PRELOAD", "libumockdev-preload.so.0"}});
        if (!box.ok() || !daemon.wait_accepting(box.control_socket(), 10s)) {
            state.SkipWithError("the daemon did not start");
            return;
        }
        const int c0 = benchrun::connect_control(box.control_socket());
        const int c1 = benchrun::connect_control(box.control_socket());
        if (c0 < 0 || c1 < 0 || !send_request(c0, TYPE_INPUT_INIT, 0) || !send_request(c1, TYPE_INPUT_INIT, 1) ||
            !send_request(c0, TYPE_MODE_SET, 0, MODE_DOUBLE_PLAYER)) {
            state.SkipWithError("the clients could not register");
            return;
        }
        std::this_thread::sleep_for(1s);  // the hot-plug poll registers both nodes
        std::atomic<bool> stop{false};
        std::thread second;
        if (second_reads)
            second = std::thread([&] { drain(c1, stop); });
        // The mouse streams towards screen 1 for the whole run, at the rate
        // of a fast gaming mouse: a report every millisecond.
        std::thread mouse([&] {
            const auto syn = ev(EV_SYN, SYN_REPORT, 0);
            auto due = Clock::now();
            for (int i = 0; !stop.load(); ++i) {
                bed.play(kMouseNode, {ev(EV_REL, REL_X, (i % 7) - 3), ev(EV_REL, REL_Y, (i % 5) - 2), syn});
                due += kMousePeriod;
                std::this_thread::sleep_until(due);
            }
        });
        {
            TimedReader reader(c0);
            for (int k = 0; k < kKeystrokes; ++k) {
                const uint16_t code = static_cast<uint16_t>(KEY_Q + k % 10);
                const auto t0 = Clock::now();
                bed.play(kKeyboardNode, {ev(EV_KEY, code, 1), ev(EV_SYN, SYN_REPORT, 0)});
                Clock::time_point t1;
                if (reader.wait_press(code, &t1))
                    ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
                bed.play(kKeyboardNode, {ev(EV_KEY, code, 0), ev(EV_SYN, SYN_REPORT, 0)});
                std::this_thread::sleep_for(kKeyGap);
            }
            stop.store(true);
        }
        mouse.join();
        if (second.joinable())
            second.join();
        int status = 0;
        alive = waitpid(daemon.pid(), &status, WNOHANG) == 0;
        close(c0);
        close(c1);
        state.SetIterationTime(static_cast<double>(kKeystrokes) * 0.001);
    }
    if (ms.empty()) {
        state.SkipWithError("no keystroke reached client 0");
        return;
    }
    std::sort(ms.begin(), ms.end());
    auto pct = [&](double p) { return ms[std::min(ms.size() - 1, static_cast<std::size_t>(p * ms.size()))]; };
    state.counters["p50_ms"] = pct(0.50);
    state.counters["p99_ms"] = pct(0.99);
    state.counters["max_ms"] = ms.back();
    state.counters["received"] = static_cast<double>(ms.size());
    state.counters["sent"] = kKeystrokes;
    state.counters["daemon_alive"] = alive ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv)
{
    signal(SIGPIPE, SIG_IGN);
    g_cmd.binary = benchrun::take_option(&argc, argv, "daemon", TACTORD_BINARY);
    benchmark::Initialize(&argc, argv);
    benchrun::once_in_seconds(
        benchmark::RegisterBenchmark("client_latency/all_reading", [](benchmark::State& s) { latency(s, true); }));
    benchrun::once_in_seconds(benchmark::RegisterBenchmark("client_latency/one_never_reads",
                                                           [](benchmark::State& s) { latency(s, false); }));
    return benchrun::run_registered();
}
