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
        const benchrun::IdleCpu idle = benchrun::measure_idle(daemon.pid(), std::chrono::seconds(seconds));
        if (!idle.ok) {
            state.SkipWithError("the daemon ended");
            break;
        }
        ticks = idle.ticks;
        percent = idle.percent;
        percent_ns = idle.percent_schedstat;
        state.SetIterationTime(idle.seconds);
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
