// The standard CRC-32 (IEEE 802.3: reflected polynomial 0xEDB88320, initial
// value 0xFFFFFFFF, final complement), used by the scanner records and the
// key-sound request.
#pragma once

#include <cstddef>
#include <cstdint>

// 0 for len 0 (and for a null pointer).
uint32_t calculate_CRC32(const void* data, std::size_t len);
// 1 when calculate_CRC32(data, len) equals crc, else 0.
int check_CRC32(const void* data, std::size_t len, uint32_t crc);
