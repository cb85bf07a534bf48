#include "common/usb_gun/crc32.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

TEST(Crc32, StandardCheckValueEmptyInputAndCheck)
{
    const char* text = "123456789";
    EXPECT_EQ(calculate_CRC32(text, std::strlen(text)), 0xCBF43926U);
    EXPECT_EQ(calculate_CRC32(text, 0), 0U);
    EXPECT_EQ(check_CRC32(text, 9, 0xCBF43926U), 1);
    EXPECT_EQ(check_CRC32(text, 9, 0xCBF43927U), 0);
}
