// The key sound service's own log file "/tmp/audio-server.txt":
// "[sec.usec][function:line] " + message, apart from the daemon's log.
#pragma once

#include <cstdint>

// 0 when the log is open (also when it already was), -1 when the file cannot
// be opened; a later call tries again.
int audiolog_log_init(const char* path);
// 0; -1 and nothing written while the log is not open.
int audiolog_log_write(const char* func, int line, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
// Logs "[%03d]Data:%s\r\n" with len and the bytes in hex, the last one left
// out; nothing for null data or len <= 0.
void audiolog_log_dumpdata(const uint8_t* data, int len);

#define AUDIOLOG(...) audiolog_log_write(__func__, __LINE__, __VA_ARGS__)
