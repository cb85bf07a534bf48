#include "common/signal_capture.h"

#include "common/root_path.h"

#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>

const char* pSignalAddress = nullptr;

namespace {

// Only the signals that mean the process is crashing. The daemon catches
// SIGPIPE, SIGTTIN, SIGTTOU, SIGURG and SIGWINCH itself so that they do not end
// it; none of them is taken over here, so they keep the daemon's handler.
// SIGABRT is included: the daemon's watchdog ends a hung process with it, and
// the backtrace of that moment is worth keeping.
constexpr std::array<int, 5> CRASH_SIGNALS = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};
constexpr int BACKTRACE_DEPTH = 64;

// The capture file's path, fixed at installation so that the handler only
// needs async-signal-safe calls. Like every other absolute non-device path of
// the system it lands under $TACTORD_ROOT when that is set.
std::array<char, 256> g_capture_path{};

void write_str(int fd, const char* s)
{
    std::size_t n = 0;
    while (s[n] != '\0')
        ++n;
    ssize_t rc = write(fd, s, n);
    (void)rc;  // nothing more can be done inside a crash handler
}

void write_num(int fd, int value)
{
    std::array<char, 12> digits{};
    std::size_t pos = digits.size() - 1;
    unsigned int v = value < 0 ? 0u - static_cast<unsigned int>(value) : static_cast<unsigned int>(value);
    do {
        digits[--pos] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0 && pos > 1);
    if (value < 0)
        digits[--pos] = '-';
    write_str(fd, digits.data() + pos);
}

void crash_handler(int sig)
{
    const int fd = open(g_capture_path.data(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd >= 0) {
        write_str(fd, "catch crash signal: ");
        write_num(fd, sig);
        write_str(fd, "\n");
        std::array<void*, BACKTRACE_DEPTH> frames{};
        const int depth = backtrace(frames.data(), BACKTRACE_DEPTH);
        backtrace_symbols_fd(frames.data(), depth, fd);
        write_str(fd, "\n");
        close(fd);
    }
    // The handler was installed with SA_RESETHAND: the default action is back,
    // so the signal, raised again, ends the process (core dump included).
    raise(sig);
}

}  // namespace

int Signal_InitCapture()
{
    if (pSignalAddress == nullptr || pSignalAddress[0] == '\0')
        return -1;
    root_path_buf resolved;
    std::snprintf(g_capture_path.data(), g_capture_path.size(), "%s", resolve_path(pSignalAddress, resolved));

    // The first backtrace() loads the unwinder, which allocates; do it now
    // rather than inside the handler.
    std::array<void*, 2> warm{};
    backtrace(warm.data(), static_cast<int>(warm.size()));

    struct sigaction sa{};
    sa.sa_handler = crash_handler;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESETHAND;
    int rc = 0;
    for (int sig : CRASH_SIGNALS) {
        if (sigaction(sig, &sa, nullptr) != 0)
            rc = -1;
    }
    return rc;
}
