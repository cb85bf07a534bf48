#include "common/log.h"

#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "common/log_internal.h"
#include "common/root_path.h"

namespace {

constexpr std::size_t LOG_BUF_SIZE = 512;
constexpr const char* LOG_PATH = "/var/log/tactord.log";
constexpr std::array<int, 4> syslog_level = {LOG_INFO, LOG_DEBUG, LOG_WARNING, LOG_ERR};

char log_buf[LOG_BUF_SIZE];

// Guards log_buf and log_file. A failed open in file mode returns with it
// held for good, so that later messages block instead of going astray; a
// thread that logs again after that must block too, and a normal mutex is
// the kind whose relock is defined to deadlock.
pthread_mutex_t log_lock = [] {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_NORMAL);
    pthread_mutex_t m;
    pthread_mutex_init(&m, &attr);
    pthread_mutexattr_destroy(&attr);
    return m;
}();

// Set while this thread is inside log_write: a signal handler that logs must
// not enter it again on the same thread (it would lock log_lock twice).
thread_local volatile sig_atomic_t in_log_write = 0;

void syslog_line(int priority, const char* line)
{
    ::syslog(priority, "%s", line);
}

// The finished line is interpreted as a format a second time on its way to
// standard output and syslog, as the logger has always done: "%%" becomes
// "%". That second pass has no arguments, so every other conversion ("%s",
// "%n", "%d" from a configuration line, a sysfs path or a peer address) is
// written as it stands instead of reading an argument that is not there.
// Works in place: the result is never longer than the line.
void second_pass(char* line)
{
    char* out = line;
    for (const char* in = line; *in != '\0'; ++in) {
        *out++ = *in;
        if (in[0] == '%' && in[1] == '%')
            ++in;
    }
    *out = '\0';
}

int open_log_file()
{
    root_path_buf path_buf;
    const char* path = resolve_path(LOG_PATH, path_buf);
    if (access(path, F_OK) == 0) {
        // One generation is kept: the previous run's log becomes ".old".
        char cmd[2 * ROOT_PATH_MAX + 16];
        std::snprintf(cmd, sizeof cmd, "mv %s %s.old", path, path);
        [[maybe_unused]] int rc = std::system(cmd);
    }
    log_file = std::fopen(path, "w");
    return log_file != nullptr ? 0 : -1;
}

}  // namespace

// The threshold and destination are set from the command line before the
// first message and never change afterwards, so the filter reads them
// without the lock.
int gs_log_level = LEVEL_ERROR;
int gs_log_place = LOG_PLACE_SYSLOG;
FILE* log_file = nullptr;
syslog_sink_fn log_syslog_sink = syslog_line;

bool log_write_active()
{
    return in_log_write != 0;
}

void set_log_level(int level)
{
    if (level >= LEVEL_INFO && level <= LEVEL_ERROR)
        gs_log_level = level;
}

void set_log_to_stdout(int place)
{
    gs_log_place = static_cast<unsigned>(place) >= LOG_PLACE_SYSLOG ? LOG_PLACE_SYSLOG : place;
}

bool log_level_enabled(int level)
{
    return gs_log_level <= level;
}

int log_write(int level, const char* func, int line, const char* fmt, ...)
{
    if (gs_log_level > level)
        return 0;

    // Plain lock and unlock: a failed open in file mode returns with the lock
    // still held (see log_lock).
    pthread_mutex_lock(&log_lock);
    in_log_write = 1;
    std::memset(log_buf, 0, sizeof log_buf);

    int prefix = 0;
    if (gs_log_place != LOG_PLACE_STDOUT) {
        prefix = std::snprintf(log_buf, sizeof log_buf - 1, "[TACTORD] %s:%d ", func != nullptr ? func : "", line);
        if (prefix < 0)
            prefix = 0;
        if (static_cast<std::size_t>(prefix) > sizeof log_buf - 2)
            prefix = sizeof log_buf - 2;
    }
    va_list ap;
    va_start(ap, fmt);
    // Prefix and text end before the buffer's last byte: at most 510 characters.
    std::vsnprintf(log_buf + prefix, sizeof log_buf - 1 - prefix, fmt, ap);
    va_end(ap);

    const int pri = level >= LEVEL_INFO && level <= LEVEL_ERROR ? syslog_level[level] : LOG_ERR;
    switch (gs_log_place) {
    case LOG_PLACE_STDOUT:
        second_pass(log_buf);
        std::fputs(log_buf, stdout);
        std::fflush(stdout);
        break;
    case LOG_PLACE_SYSLOG:
        second_pass(log_buf);
        log_syslog_sink(pri, log_buf);
        break;
    case LOG_PLACE_FILE:
        if (log_file == nullptr && open_log_file() != 0) {
            in_log_write = 0;
            return -1;  // lock deliberately left held, see log_lock
        }
        std::fwrite(log_buf, 1, std::strlen(log_buf), log_file);
        break;
    default:
        break;
    }
    in_log_write = 0;
    pthread_mutex_unlock(&log_lock);
    return 0;
}
