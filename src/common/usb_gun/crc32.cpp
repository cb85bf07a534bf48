#include "common/usb_gun/crc32.h"

#include <array>

namespace {

constexpr std::array<uint32_t, 256> make_table()
{
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit)
            c = (c & 1U) != 0 ? 0xEDB88320U ^ (c >> 1) : c >> 1;
        table[i] = c;
    }
    return table;
}

constexpr std::array<uint32_t, 256> crc_table = make_table();
static_assert(crc_table[1] == 0x77073096U && crc_table[255] == 0x2D02EF8DU);

}  // namespace

uint32_t calculate_CRC32(const void* data, std::size_t len)
{
    if (data == nullptr || len == 0)
        return 0;
    const auto* p = static_cast<const uint8_t*>(data);
    uint32_t crc = 0xFFFFFFFFU;
    for (std::size_t i = 0; i < len; ++i)
        crc = crc_table[(crc ^ p[i]) & 0xFFU] ^ (crc >> 8);
    return ~crc;
}

int check_CRC32(const void* data, std::size_t len, uint32_t crc)
{
    return calculate_CRC32(data, len) == crc ? 1 : 0;
}
