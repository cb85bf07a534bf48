// Shared set-up of the fuzz targets: a scratch directory as $TACTORD_ROOT,
// removed at exit, the daemon's log at every level into a sink that keeps
// only the last line, and the socket pairs that stand for clients and links.
#pragma once

#include <fcntl.h>
#include <ftw.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "common/log.h"
#include "common/log_internal.h"

namespace fuzzsupport {

inline char last_line[512];
inline std::string scratch;

// False when the directory cannot be made.
inline bool set_up_scratch_and_log()
{
    char dir[] = "/tmp/tactord-fuzz.XXXXXX";
    if (mkdtemp(dir) == nullptr)
        return false;
    scratch = dir;
    std::atexit([] {
        nftw(scratch.c_str(), [](const char* p, const struct stat*, int, FTW*) { return std::remove(p); }, 8,
             FTW_DEPTH | FTW_PHYS);
    });
    setenv("TACTORD_ROOT", dir, 1);
    set_log_level(LEVEL_INFO);
    set_log_to_stdout(LOG_PLACE_SYSLOG);
    log_syslog_sink = [](int, const char* line) { std::strncpy(last_line, line, sizeof last_line - 1); };
    return true;
}

// The same for targets that run the daemon's modules: standard output (where
// the framebuffer probe prints) goes to /dev/null, as the fuzzer reports on
// standard error, and a client end that closes does not raise SIGPIPE.
inline bool set_up_daemon_scratch()
{
    if (!set_up_scratch_and_log() || std::freopen("/dev/null", "w", stdout) == nullptr)
        return false;
    signal(SIGPIPE, SIG_IGN);
    return true;
}

// A stream socket pair whose ends never block; false when none can be made.
inline bool nonblocking_pair(int sv[2])
{
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0)
        return false;
    fcntl(sv[0], F_SETFL, O_NONBLOCK);
    fcntl(sv[1], F_SETFL, O_NONBLOCK);
    return true;
}

// Reads a descriptor that never blocks until nothing is left.
inline void drain(int fd)
{
    char buf[4096];
    while (read(fd, buf, sizeof buf) > 0) {
    }
}

}  // namespace fuzzsupport
