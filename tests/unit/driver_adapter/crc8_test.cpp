#include "common/crc8.h"

#include <gtest/gtest.h>

#include <array>

namespace {

TEST(Crc8, KnownValuesAndItsOwnRemainder)
{
    const auto* check = reinterpret_cast<const uint8_t*>("123456789");
    EXPECT_EQ(getCRC8(check, 9), 0xA2);
    EXPECT_EQ(getCRC8(check, 0), 0);
    EXPECT_EQ(getCRC8(nullptr, 9), 0);
    const std::array<uint8_t, 1> one = {0x80};
    EXPECT_EQ(getCRC8(one.data(), 1), 0x7A);
    // No final XOR and a zero start: data followed by its CRC leaves 0.
    std::array<uint8_t, 10> with_crc{};
    std::copy(check, check + 9, with_crc.begin());
    with_crc[9] = 0xA2;
    EXPECT_EQ(getCRC8(with_crc.data(), 10), 0);
}

}  // namespace
