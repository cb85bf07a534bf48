#include "sim/sandbox_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace emul {
namespace {

// The process holding the lock on fd: the pid the holder wrote into the
// file, else the kernel's table of locks; 0 when neither tells.
long holder_of(int fd)
{
    char text[32] = {};
    if (pread(fd, text, sizeof text - 1, 0) > 0) {
        const long pid = std::strtol(text, nullptr, 10);
        if (pid > 0)
            return pid;
    }
    struct stat st{};
    if (fstat(fd, &st) != 0)
        return 0;
    // "1: FLOCK  ADVISORY  WRITE 1234 08:01:5678 0 EOF": pid, then the
    // device and inode of the file (POSIX for the daemon's fcntl lock).
    std::ifstream locks("/proc/locks");
    const std::string inode = ":" + std::to_string(st.st_ino);
    for (std::string line; std::getline(locks, line);) {
        std::istringstream in(line);
        std::string number, kind, advisory, mode, file;
        long pid = 0;
        if (in >> number >> kind >> advisory >> mode >> pid >> file && (kind == "FLOCK" || kind == "POSIX") &&
            file.size() > inode.size() && file.compare(file.size() - inode.size(), inode.size(), inode) == 0)
            return pid;
    }
    return 0;
}

// True when another panel holds the panel's lock (flock) on fd.
bool held_elsewhere(int fd)
{
    return flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

// True when a daemon holds its instance lock (fcntl, which flock does not
// see) on fd; only asked, so that the panel's own daemon can take it.
bool daemon_holds(int fd)
{
    struct flock want{};
    want.l_type = F_WRLCK;
    want.l_whence = SEEK_SET;
    return fcntl(fd, F_GETLK, &want) == 0 && want.l_type != F_UNLCK;
}

std::string in_use(const std::string& root, const char* who, int fd)
{
    return "sandbox " + root + " is in use: " + who + " is already running (pid " + std::to_string(holder_of(fd)) +
           ")";
}

}  // namespace

SandboxLock::~SandboxLock()
{
    if (fd_ >= 0)
        close(fd_);
}

bool SandboxLock::acquire(const std::string& root, std::string& error)
{
    std::error_code ec;
    std::filesystem::create_directories(root + "/var/run", ec);
    fd_ = open((root + "/var/run/tactord-sim.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        error = "cannot lock the sandbox " + root + ": " + std::strerror(errno);
        return false;
    }
    if (held_elsewhere(fd_)) {
        error = in_use(root, "tactord-sim", fd_);
        return false;
    }
    // A daemon started on this sandbox by hand holds its own lock.
    const int daemon = open((root + "/var/run/tactord.lock").c_str(), O_RDONLY | O_CLOEXEC);
    if (daemon >= 0) {
        const bool busy = daemon_holds(daemon);
        if (busy)
            error = in_use(root, "tactord", daemon);
        close(daemon);
        if (busy)
            return false;
    }
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd_, 0) != 0 || pwrite(fd_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        // The lock holds without the pid; a second panel then finds the pid
        // in the kernel's table of locks.
    }
    return true;
}

}  // namespace emul
