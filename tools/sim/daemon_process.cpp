#include "sim/daemon_process.h"

#include "sim/ioctl_bridge.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <elf.h>
#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

extern char** environ;

namespace emul {

namespace {

bool is_arm32_elf(const std::string& path)
{
    unsigned char head[sizeof(Elf32_Ehdr)] = {};
    std::ifstream in(path, std::ios::binary);
    if (!in.read(reinterpret_cast<char*>(head), sizeof head))
        return false;
    Elf32_Ehdr eh;
    std::memcpy(&eh, head, sizeof eh);
    return std::memcmp(eh.e_ident, ELFMAG, SELFMAG) == 0 && eh.e_ident[EI_CLASS] == ELFCLASS32 &&
           eh.e_ident[EI_DATA] == ELFDATA2LSB && eh.e_machine == EM_ARM;
}

constexpr const char* kTargetPreload = "/usr/lib/arm-linux-gnueabihf/libumockdev-preload.so.0";

std::string env_or(const char* name, const std::string& fallback)
{
    const char* v = std::getenv(name);
    return v != nullptr && v[0] != '\0' ? v : fallback;
}

}  // namespace

DaemonTarget describe_daemon(const std::string& binary)
{
    DaemonTarget t;
    t.binary = binary;
    t.arm32 = is_arm32_elf(binary);
    if (!t.arm32)
        return t;
    t.emulator = env_or("TACTORD_EMULATOR", "qemu-arm");
    // scripts/target-sysroot unpacks the target's runtime into the build
    // tree: build/arm/sysroot for build/arm/src/tactord.
    namespace fs = std::filesystem;
    std::error_code ec;
    std::string found;
    for (fs::path dir = fs::weakly_canonical(binary, ec).parent_path(); found.empty() && dir.has_relative_path();
         dir = dir.parent_path())
        if (fs::exists((dir / "sysroot").string() + kTargetPreload, ec))
            found = (dir / "sysroot").string();
    t.sysroot = env_or("TACTORD_SYSROOT", found);
    if (!t.sysroot.empty() && fs::exists(t.sysroot + kTargetPreload, ec))
        t.preload = t.sysroot + kTargetPreload;
    return t;
}

std::string daemon_binary()
{
    return env_or("TACTORD_DAEMON", TACTORD_BINARY);
}

DaemonProcess::DaemonProcess(const std::string& workdir, const std::vector<std::string>& args, const Launch& launch)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return;
    if (!launch.log_path.empty())
        log_fd_ = open(launch.log_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    // The binary is named from the caller's directory, run from workdir.
    std::error_code ec;
    const std::string binary = std::filesystem::absolute(launch.binary, ec).string();
    const DaemonTarget target = describe_daemon(binary);
    std::vector<std::string> argv_store;
    // A target binary runs under the emulator with the target's preload, and
    // the emulator itself without the host's: it reaches the testbed only
    // through the guest's. The preload goes by its bare name: the target's
    // loader finds the sysroot's (qemu-arm looks there first), and a host
    // program the daemon starts (system() runs the host's /bin/sh) gets the
    // host's, as the host daemon's children do.
    if (target.arm32)
        argv_store = {target.emulator, "-L", target.sysroot, "-E", "LD_PRELOAD=libumockdev-preload.so.0"};
    argv_store.push_back(binary);
    argv_store.insert(argv_store.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : argv_store)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    // The target's preload reaches the testbed through a view that relays
    // its ioctl messages (sim/ioctl_bridge.h).
    const char* testbed = std::getenv("UMOCKDEV_DIR");
    std::string view = "UMOCKDEV_DIR=";
    if (target.arm32 && testbed != nullptr)
        view += target_view(testbed);
    std::vector<char*> target_env;
    for (char** e = environ; target.arm32 && *e != nullptr; ++e)
        if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0 && std::strncmp(*e, "UMOCKDEV_DIR=", 13) != 0)
            target_env.push_back(*e);
    if (testbed != nullptr)
        target_env.push_back(view.data());
    target_env.push_back(nullptr);
    const std::string no_sysroot =
        "no target sysroot with the umockdev preload for " + binary + " (scripts/install-deps prepares it)\n";

    pid_ = fork();
    if (pid_ == 0) {
        // A test that dies must not leave a daemon behind.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(fds[1], STDOUT_FILENO);
        dup2(fds[1], STDERR_FILENO);
        close(fds[0]);
        close(fds[1]);
        if (chdir(workdir.c_str()) != 0 || (launch.session_leader && setsid() < 0))
            _exit(126);
        if (target.arm32) {
            if (target.preload.empty()) {
                [[maybe_unused]] ssize_t n = write(STDERR_FILENO, no_sysroot.data(), no_sysroot.size());
                _exit(127);
            }
            execvpe(argv[0], argv.data(), target_env.data());
            _exit(127);
        }
        if (launch.umockdev_preload) {
            const char* old = std::getenv("LD_PRELOAD");
            const std::string preload =
                std::string("libumockdev-preload.so.0") + (old != nullptr && old[0] != '\0' ? ":" + std::string(old) : "");
            setenv("LD_PRELOAD", preload.c_str(), 1);
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    if (pid_ < 0) {
        close(fds[0]);
        return;
    }
    out_fd_ = fds[0];
    reader_ = std::thread([this] { collect(); });
}

DaemonProcess::~DaemonProcess()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (reader_.joinable())
        reader_.join();
    if (out_fd_ >= 0)
        close(out_fd_);
    if (log_fd_ >= 0)
        close(log_fd_);
}

void DaemonProcess::collect()
{
    char buf[4096];
    for (;;) {
        const ssize_t n = read(out_fd_, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        std::lock_guard<std::mutex> guard(mutex_);
        if (n <= 0) {
            eof_ = true;
            changed_.notify_all();
            return;
        }
        output_.append(buf, static_cast<std::size_t>(n));
        if (log_fd_ >= 0 && write(log_fd_, buf, static_cast<std::size_t>(n)) < 0) {
            // A full disk loses the copy, not the output.
        }
        changed_.notify_all();
    }
}

std::string DaemonProcess::output() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return output_;
}

std::size_t DaemonProcess::mark() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return output_.size();
}

bool DaemonProcess::wait_for(const std::string& text, std::size_t since, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] {
        return output_.find(text, since) != std::string::npos || eof_;
    }) && output_.find(text, since) != std::string::npos;
}

int DaemonProcess::count(const std::string& text) const
{
    std::lock_guard<std::mutex> guard(mutex_);
    int n = 0;
    for (std::size_t pos = output_.find(text); pos != std::string::npos; pos = output_.find(text, pos + 1))
        ++n;
    return n;
}

bool DaemonProcess::alive()
{
    return pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0;
}

}  // namespace emul
