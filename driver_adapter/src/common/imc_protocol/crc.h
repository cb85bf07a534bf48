// The 16-bit frame check of the IMC link: the FCS of RFC 1662 (reflected
// polynomial 0x8408, initial value 0xFFFF) without the final complement.
#pragma once

#include <cstdint>

inline constexpr uint16_t IMC_CRC_INIT = 0xFFFF;

// CRC of len bytes from the initial value; 0xFFFF for no bytes (or no data).
uint16_t CalcWordCRC(const uint8_t* data, uint32_t len);
// Continues a CRC from seed over len more bytes; seed itself for no bytes.
uint16_t CalcWordSeqCRC(uint16_t seed, const uint8_t* data, uint32_t len);
