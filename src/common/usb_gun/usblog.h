// The scanner service's own log file: "[sec.usec][function:line] " + message.
#pragma once

#include <cstdint>

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
