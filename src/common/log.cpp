#include "common/log.h"

#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "common/log_internal.h"
#include "common/root_path.h"

namespace {

constexpr std::size_t LOG_BUF_SIZE = 512;
constexpr const char* LOG_PATH = "/var/log/tactord.log";
constexpr std::array<int, 4> syslog_level = {LOG_INFO, LOG_DEBUG, LOG_WARNING, LOG_ERR};

char log_buf[LOG_BUF_SIZE];
// Guards log_buf and log_file.
std::mutex log_lock;

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
syslog_sink_fn log_syslog_sink = ::syslog;

void set_log_level(int level)
{
    if (level >= LEVEL_INFO && level <= LEVEL_ERROR)
        gs_log_level = level;
}

void set_log_to_stdout(int place)
{
    gs_log_place = static_cast<unsigned>(place) >= LOG_PLACE_SYSLOG ? LOG_PLACE_SYSLOG : place;
}

int log_write(int level, const char* func, int line, const char* fmt, ...)
{
    if (gs_log_level > level)
        return 0;

    // Plain lock()/unlock(): a failed open in file mode returns with the lock
    // still held, so later messages block instead of going astray. That is the
    // logger's documented behaviour, kept on purpose.
    log_lock.lock();
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
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
        // The finished line is itself the format: a '%' that reaches it is
        // interpreted a second time. Kept as the daemon has always done it.
        std::printf(log_buf);
#pragma GCC diagnostic pop
        std::fflush(stdout);
        break;
    case LOG_PLACE_SYSLOG:
        log_syslog_sink(pri, log_buf);
        break;
    case LOG_PLACE_FILE:
        if (log_file == nullptr && open_log_file() != 0)
            return -1;  // lock deliberately left held, see above
        std::fwrite(log_buf, 1, std::strlen(log_buf), log_file);
        break;
    default:
        break;
    }
    log_lock.unlock();
    return 0;
}
