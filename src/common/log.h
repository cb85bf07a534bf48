// The daemon's logger: one formatted call, a severity threshold and three
// destinations (standard output, a once-rotated file, syslog).
#pragma once

// The numbers are the severities; info deliberately ranks below debug.
enum _log_level : int {
    LEVEL_INFO = 0,
    LEVEL_DEBUG = 1,
    LEVEL_WARN = 2,
    LEVEL_ERROR = 3,
};

inline constexpr int LOG_PLACE_STDOUT = 0;
inline constexpr int LOG_PLACE_FILE = 1;
inline constexpr int LOG_PLACE_SYSLOG = 2;

void set_log_level(int level);
void set_log_to_stdout(int place);

// Returns 0 when the message was filtered or written, -1 when the log file
// could not be opened. Callers put their own "\n" into fmt.
int log_write(int level, const char* func, int line, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

// True when a line of this level passes the threshold: a hot path may skip
// building a line that would be filtered.
bool log_level_enabled(int level);

// True while the calling thread is inside log_write (a signal handler must
// not log then: it would take the logger's lock a second time).
bool log_write_active();

#define TLOG(level, ...) log_write((level), __func__, __LINE__, __VA_ARGS__)
