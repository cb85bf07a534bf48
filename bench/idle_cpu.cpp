// The daemon's CPU time while nothing happens: the real binary started in a
// sandbox with no input devices at all (no umockdev preload: its own threads'
// periodic work is what is measured, the hot-plug poll of the sixteen node
// names, the cursor timer, the watchdog, the main loop's one-second pass and
// the scanner service's threads), left alone for a while once its control
// socket accepts, and utime + stime read from /proc/PID/stat before and
// after (and, finer, the threads' time on a CPU from their schedstat).
// Reported in percent of one core.
//
//   idle_cpu [--seconds=60] [--daemon=PATH] [--emulator="qemu-arm -L /usr/arm-linux-gnueabihf"]
//
// With --emulator the process measured is the emulator running the target
// binary, the translation included.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "daemon_run.h"

namespace {

using namespace std::chrono_literals;

void idle_cpu(benchmark::State& state, benchrun::DaemonCommand cmd, int seconds)
{
    const double tick = 1.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
    double percent = 0;
    double percent_ns = 0;
    long ticks = 0;
    for (auto _ : state) {
        benchrun::Sandbox box;
        benchrun::Daemon daemon(cmd, box);
        if (!box.ok() || !daemon.wait_accepting(box.control_socket(), 30s)) {
            state.SkipWithError("the daemon did not start");
            break;
        }
        // The start-up's own work is over once the last services are up.
        std::this_thread::sleep_for(2s);
        const long before = benchrun::cpu_ticks(daemon.pid());
        const long long before_ns = benchrun::cpu_ns(daemon.pid());
        const auto t0 = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        const long after = benchrun::cpu_ticks(daemon.pid());
        const long long after_ns = benchrun::cpu_ns(daemon.pid());
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - t0;
        if (before < 0 || after < 0) {
            state.SkipWithError("the daemon ended");
            break;
        }
        ticks = after - before;
        percent = 100.0 * static_cast<double>(ticks) * tick / elapsed.count();
        // Threads that ended meanwhile are missing from the second sum.
        percent_ns = 100.0 * static_cast<double>(std::max(after_ns - before_ns, 0LL)) / 1e9 / elapsed.count();
        state.SetIterationTime(elapsed.count());
    }
    state.counters["cpu_percent"] = percent;
    state.counters["cpu_ticks"] = static_cast<double>(ticks);
    state.counters["cpu_percent_schedstat"] = percent_ns;
}

}  // namespace

int main(int argc, char** argv)
{
    const int seconds = std::atoi(benchrun::take_option(&argc, argv, "seconds", "60").c_str());
    benchrun::DaemonCommand cmd;
    cmd.binary = benchrun::take_option(&argc, argv, "daemon", TACTORD_BINARY);
    cmd.emulator = benchrun::split_words(benchrun::take_option(&argc, argv, "emulator", ""));
    if (seconds <= 0) {
        std::fprintf(stderr, "idle_cpu: --seconds must be a positive number\n");
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    benchrun::once_in_seconds(benchmark::RegisterBenchmark(
        cmd.emulator.empty() ? "idle_cpu/host" : "idle_cpu/emulated", idle_cpu, cmd, seconds));
    return benchrun::run_registered();
}
