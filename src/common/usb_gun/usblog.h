// The scanner service's own log file: "[sec.usec][function:line] " + message.
// The log machinery (ServiceLog) is shared with the key sound service's log.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>

// One log file of a service, written line by line by all its threads.
class ServiceLog {
public:
    // Opens path (resolved under $TACTORD_ROOT, at most 255 characters kept)
    // for appending; false when that fails. Opening again replaces nothing.
    bool open(const char* path);
    bool is_open();
    // -1 when the file is not open, else 0. The line is cut to 511 bytes.
    int vwrite(const char* func, int line, const char* fmt, va_list ap);
    // Logs "[%03d]Data:%s\r\n" with n and the bytes in lower-case hex, from
    // the named function; the last byte is never printed.
    void dump(const char* func, int line, const uint8_t* data, int n);

private:
    int write(const char* func, int line, const char* fmt, ...) __attribute__((format(printf, 4, 5)));

    std::array<char, 256> path_{};
    // Guards file_ and line_; serialises the lines of all threads.
    std::mutex mutex_;
    FILE* file_ = nullptr;
    char line_[512];
};

// Once per process: a later call returns 0 and changes nothing. Opens path
// (resolved under $TACTORD_ROOT) for appending; -1 when that fails, and
// nothing is logged afterwards.
int usblog_init_log(const char* path);
// -1 when the log is not open, else 0. Messages carry their own "\r\n".
int usblog_log_write(const char* func, int line, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
// Logs "[%03d]Data:%s\r\n" with n and the bytes in hex; the last byte is
// never printed.
void usblog_log_dumpdata(const uint8_t* data, int n);

#define USBLOG(...) usblog_log_write(__func__, __LINE__, __VA_ARGS__)
