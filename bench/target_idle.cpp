// The target's daemon at rest with devices attached: the arm build's tactord
// run under qemu-arm with the target's own umockdev preload (as the target
// system tests run it), a board's worth of emulated devices plugged in (a
// multi-touch panel, a keyboard, a mouse, the framebuffer and the touch-lock
// device), left alone once its control socket accepts. The process measured
// is the emulator, so both figures include it: CPU time (utime + stime, and
// the threads' schedstat) in percent of one core, and VmRSS at the end.
//
//   target_idle --daemon=build/arm/src/tactord [--seconds=30]
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "daemon_run.h"
#include "sim/daemon_process.h"
#include "sim/dev_mod_cfg_emul.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"

namespace {

using namespace std::chrono_literals;

bool accepting(const std::string& socket_path, std::chrono::seconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        const int fd = benchrun::connect_control(socket_path);
        if (fd >= 0) {
            close(fd);
            return true;
        }
        std::this_thread::sleep_for(100ms);
    }
    return false;
}

void target_idle(benchmark::State& state, std::string binary, int seconds)
{
    double percent = 0, percent_ns = 0;
    long rss = 0;
    for (auto _ : state) {
        emul::EvdevTestbed bed;
        emul::FramebufferEmulator fb(bed.testbed(), 1280, 800);
        emul::DevModCfgEmulator lock(bed.testbed());
        namespace dev = emul::devices;
        if (!bed.add(1, dev::multi_touch_screen()) || !bed.add(2, dev::full_keyboard()) ||
            !bed.add(3, dev::mouse())) {
            state.SkipWithError("the testbed refused a device");
            break;
        }
        benchrun::Sandbox box;
        setenv("TACTORD_ROOT", box.path().c_str(), 1);
        emul::Launch launch;
        launch.binary = binary;
        emul::DaemonProcess daemon(box.path(), {"-p", "0", "-d", "3", "-i", "0"}, launch);
        if (!box.ok() || !daemon.started() || !accepting(box.control_socket(), 60s)) {
            std::fprintf(stderr, "%s", daemon.output().c_str());
            state.SkipWithError("the daemon did not start");
            break;
        }
        // The hot-plug poll has registered the nodes and the services are up.
        std::this_thread::sleep_for(3s);
        const benchrun::IdleCpu idle = benchrun::measure_idle(daemon.pid(), std::chrono::seconds(seconds));
        rss = benchrun::status_kib(daemon.pid(), "VmRSS");
        if (!idle.ok || !daemon.alive()) {
            state.SkipWithError("the daemon ended");
            break;
        }
        percent = idle.percent;
        percent_ns = idle.percent_schedstat;
        state.SetIterationTime(idle.seconds);
    }
    state.counters["cpu_percent"] = percent;
    state.counters["cpu_percent_schedstat"] = percent_ns;
    state.counters["rss_kib"] = static_cast<double>(rss);
}

}  // namespace

int main(int argc, char** argv)
{
    const int seconds = std::atoi(benchrun::take_option(&argc, argv, "seconds", "30").c_str());
    const std::string binary = benchrun::take_option(&argc, argv, "daemon", "");
    if (seconds <= 0 || binary.empty()) {
        std::fprintf(stderr, "usage: target_idle --daemon=ARM_BINARY [--seconds=N]\n");
        return 2;
    }
    // The emulation writes the records of the daemon it serves.
    setenv("TACTORD_DAEMON", binary.c_str(), 1);
    if (!emul::daemon_is_target()) {
        std::fprintf(stderr, "target_idle: %s is not an ARM binary\n", binary.c_str());
        return 2;
    }
    benchmark::Initialize(&argc, argv);
    benchrun::once_in_seconds(benchmark::RegisterBenchmark("target_idle/devices", target_idle, binary, seconds));
    return benchrun::run_registered();
}
