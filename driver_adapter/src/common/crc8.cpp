#include "common/crc8.h"

#include <array>

namespace {

constexpr uint8_t crc8_shift(uint8_t v)
{
    for (int i = 0; i < 8; ++i)
        v = static_cast<uint8_t>((v & 0x80u) != 0 ? (v << 1) ^ 0x31u : v << 1);
    return v;
}

// The remainder is linear in its input, so one byte is done a nibble at a
// time: the high nibble's table and the low nibble's table XORed.
constexpr std::array<uint8_t, 16> make_table(int shift)
{
    std::array<uint8_t, 16> t{};
    for (unsigned n = 0; n < 16; ++n)
        t[n] = crc8_shift(static_cast<uint8_t>(n << shift));
    return t;
}

constexpr std::array<uint8_t, 16> CRC8_HIGH = make_table(4);
constexpr std::array<uint8_t, 16> CRC8_LOW = make_table(0);
static_assert(CRC8_LOW[1] == 0x31 && CRC8_HIGH[1] == 0x43 && CRC8_HIGH[8] == 0x7a);

}  // namespace

uint8_t getCRC8(const uint8_t* data, uint32_t len)
{
    if (data == nullptr)
        return 0;
    uint8_t crc = 0;
    for (uint32_t i = 0; i < len; ++i) {
        const uint8_t v = static_cast<uint8_t>(crc ^ data[i]);
        crc = static_cast<uint8_t>(CRC8_HIGH[v >> 4] ^ CRC8_LOW[v & 0x0fu]);
    }
    return crc;
}
