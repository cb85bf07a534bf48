// Runs the real tactord binary in a working directory (which holds its
// "port.conf") with the caller's environment ($TACTORD_ROOT, the umockdev
// testbed and, for a caller that is not preloaded itself, the umockdev
// preload), collects its standard output, and kills and reaps it on
// destruction. The binary is the host build's, or the one $TACTORD_DAEMON
// names: a 32-bit ARM build runs under qemu-arm with the target's own
// sysroot and umockdev preload, against the same testbed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace emul {

// The daemon's log on standard output, every level, no remote-screen clients.
inline const std::vector<std::string> kStdoutLogArgs = {"-p", "0", "-d", "0", "-i", "0"};

// The daemon binary the emulation serves and how it runs.
struct DaemonTarget {
    std::string binary;
    bool arm32 = false;     // an ELF32 ARM executable: 16-byte evdev records
    std::string emulator;   // arm32: $TACTORD_EMULATOR, else qemu-arm from the PATH
    std::string sysroot;    // arm32: $TACTORD_SYSROOT, else the "sysroot" folder of its build tree
    std::string preload;    // arm32: the sysroot's umockdev preload, empty when missing
};
// What binary is, from its ELF header and the folders around it.
DaemonTarget describe_daemon(const std::string& binary);
// $TACTORD_DAEMON when set, else the host build.
std::string daemon_binary();
// True when the daemon that tests and the panel run is a target build.
inline bool daemon_is_target()
{
    return describe_daemon(daemon_binary()).arm32;
}

// How the daemon is started beyond its arguments.
struct Launch {
    std::string binary = daemon_binary();
    bool umockdev_preload = false;  // put the umockdev preload into the daemon's LD_PRELOAD
    std::string log_path;           // also append the output to this file
    bool session_leader = false;    // the daemon runs in a session of its own, as under a supervisor
};

class DaemonProcess {
public:
    explicit DaemonProcess(const std::string& workdir, const std::vector<std::string>& args = kStdoutLogArgs,
                           const Launch& launch = {});
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    bool started() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    // Everything written so far.
    std::string output() const;
    // Current length of the output: pass it to wait_for to look only at what
    // comes after.
    std::size_t mark() const;
    // Waits until text appears in the output at or after offset since.
    bool wait_for(const std::string& text, std::size_t since = 0,
                  std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
    // Occurrences of text in the output so far.
    int count(const std::string& text) const;
    // True while the process has not ended.
    bool alive();

private:
    void collect();

    pid_t pid_ = -1;
    int out_fd_ = -1;
    int log_fd_ = -1;
    std::thread reader_;
    // Guards output_ and eof_.
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::string output_;
    bool eof_ = false;
};

}  // namespace emul
