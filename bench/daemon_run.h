// The real daemon as a measured process: a scratch $TACTORD_ROOT with the
// sample seat file in its working directory, the daemon started there (or
// under an emulator such as qemu-arm), its control socket waited for, and
// its CPU time and memory read from /proc.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace benchrun {

// A scratch directory used as $TACTORD_ROOT and as the working directory,
// with the directories the daemon writes into and the sample "port.conf".
// Removed with everything in it on destruction.
class Sandbox {
public:
    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    bool ok() const { return !path_.empty(); }
    const std::string& path() const { return path_; }
    std::string control_socket() const { return path_ + "/var/mutli_config.sock"; }

private:
    std::string path_;
};

// The command that runs the daemon: emulator words (none on the host), the
// binary, its options.
struct DaemonCommand {
    std::vector<std::string> emulator;
    std::string binary;
    std::vector<std::string> args = {"-p", "0", "-d", "3", "-i", "0"};
};

// The daemon started in a sandbox, its output thrown away; killed and reaped
// on destruction.
class Daemon {
public:
    // extra_env: variables set for the daemon only (name, value).
    Daemon(const DaemonCommand& cmd, const Sandbox& box,
           const std::vector<std::pair<std::string, std::string>>& extra_env = {});
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    pid_t pid() const { return pid_; }
    // When the process was started (just before fork).
    std::chrono::steady_clock::time_point started_at() const { return started_at_; }
    // Polls until the control socket accepts a connection; the moment it did,
    // or nothing when the time ran out or the process ended.
    bool wait_accepting(const std::string& socket_path, std::chrono::milliseconds timeout,
                        std::chrono::steady_clock::time_point* when = nullptr) const;

private:
    pid_t pid_ = -1;
    std::chrono::steady_clock::time_point started_at_;
};

// A connection to the control socket at path, or -1 when it does not accept.
int connect_control(const std::string& path);

// utime + stime of the process in clock ticks (all its threads), -1 when it
// cannot be read.
long cpu_ticks(pid_t pid);
// Time on a CPU of all the process's threads in nanoseconds, from
// /proc/PID/task/*/schedstat (finer than the clock ticks of cpu_ticks), -1
// when it cannot be read.
long long cpu_ns(pid_t pid);
// The process's CPU time over a stretch of rest, in percent of one core.
struct IdleCpu {
    bool ok = false;  // false when the process ended or /proc could not be read
    double seconds = 0;
    long ticks = 0;
    double percent = 0;            // from the clock ticks
    double percent_schedstat = 0;  // from the threads' schedstat
};
// Leaves the process alone for that long and measures it.
IdleCpu measure_idle(pid_t pid, std::chrono::seconds stretch);
// A "Vm..." field of /proc/PID/status in KiB, -1 when it cannot be read.
long status_kib(pid_t pid, const char* field);

// The value of a "--name=value" argument, removed from argv; fallback when
// it is not there.
std::string take_option(int* argc, char** argv, const std::string& name, const std::string& fallback);
// Words split at blanks.
std::vector<std::string> split_words(const std::string& text);

// A measurement that runs once and reports the time it sets itself, in
// seconds.
benchmark::internal::Benchmark* once_in_seconds(benchmark::internal::Benchmark* b);
// Runs what was registered, ends the library, and gives main's result.
int run_registered();

}  // namespace benchrun
