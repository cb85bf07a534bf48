// One simulated panel per sandbox: the panel holds an exclusive lock on
// $ROOT/var/run/tactord-sim.lock while it runs, and refuses a sandbox whose
// lock, or the daemon's own $ROOT/var/run/tactord.lock, another process holds.
#pragma once

#include <string>

namespace emul {

class SandboxLock {
public:
    SandboxLock() = default;
    ~SandboxLock();
    SandboxLock(const SandboxLock&) = delete;
    SandboxLock& operator=(const SandboxLock&) = delete;

    // False, with the message to print in error ("... is already running
    // (pid N)"), when the sandbox is in use or cannot be locked.
    bool acquire(const std::string& root, std::string& error);

private:
    int fd_ = -1;
};

}  // namespace emul
