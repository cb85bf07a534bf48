#include "sim/daemon_process.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

namespace emul {

DaemonProcess::DaemonProcess(const std::string& workdir, const std::vector<std::string>& args, const Launch& launch)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0)
        return;
    if (!launch.log_path.empty())
        log_fd_ = open(launch.log_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    std::vector<std::string> argv_store = {launch.binary};
    argv_store.insert(argv_store.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : argv_store)
        argv.push_back(a.data());
    argv.push_back(nullptr);

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
