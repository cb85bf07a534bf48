// The adapter's logger: every message is one UDP datagram to the log
// collector on 127.0.0.1 port 20000 (a level byte, the text, its zero).
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint16_t SEND_LOG_PORT = 20000;
inline constexpr const char* SEND_LOG_ADDR = "127.0.0.1";
// Longest text of one message; longer ones are cut.
inline constexpr std::size_t SEND_LOG_TEXT_MAX = 511;

// Levels follow syslog numbering.
inline constexpr int DRV_LOG_ERR = 3;
inline constexpr int DRV_LOG_INFO = 6;

// Adapter messages start with "%s:%d:%s(): " filled from DRV_POS.
#define DRV_POS __FILE_NAME__, __LINE__, __func__

// Never blocks and reports nothing: a message that cannot be sent is lost.
// Safe from any thread.
void send_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
