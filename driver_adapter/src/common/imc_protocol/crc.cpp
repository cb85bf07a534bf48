#include "common/imc_protocol/crc.h"

#include <array>

namespace {

constexpr std::array<uint16_t, 256> make_fcs_table()
{
    std::array<uint16_t, 256> table{};
    for (unsigned b = 0; b < 256; ++b) {
        unsigned v = b;
        for (int i = 0; i < 8; ++i)
            v = (v & 1u) != 0 ? (v >> 1) ^ 0x8408u : v >> 1;
        table[b] = static_cast<uint16_t>(v);
    }
    return table;
}

// The 256-entry table of RFC 1662, built at compile time; a few of its
// printed entries pin it down.
constexpr std::array<uint16_t, 256> FCS_TABLE = make_fcs_table();
static_assert(FCS_TABLE[0x01] == 0x1189 && FCS_TABLE[0x02] == 0x2312 && FCS_TABLE[0x07] == 0x74bf);
static_assert(FCS_TABLE[0x80] == 0x8408 && FCS_TABLE[0xfe] == 0x1ef1 && FCS_TABLE[0xff] == 0x0f78);

}  // namespace

uint16_t CalcWordSeqCRC(uint16_t seed, const uint8_t* data, uint32_t len)
{
    if (data == nullptr)
        return seed;
    uint16_t fcs = seed;
    for (uint32_t i = 0; i < len; ++i)
        fcs = static_cast<uint16_t>((fcs >> 8) ^ FCS_TABLE[(fcs ^ data[i]) & 0xffu]);
    return fcs;
}

uint16_t CalcWordCRC(const uint8_t* data, uint32_t len)
{
    return CalcWordSeqCRC(IMC_CRC_INIT, data, len);
}
