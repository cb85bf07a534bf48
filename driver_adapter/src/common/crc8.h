// CRC-8 of the drivers' receive paths: polynomial 0x31, most significant bit
// first, initial value 0, no final XOR.
#pragma once

#include <cstdint>

// 0 for no bytes or no data.
uint8_t getCRC8(const uint8_t* data, uint32_t len);
