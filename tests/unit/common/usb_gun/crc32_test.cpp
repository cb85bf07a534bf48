#include "common/usb_gun/crc32.h"

#include "support/unit_common.h"

TEST(Crc32, StandardCheckValueEmptyInputAndCheck)
{
    EXPECT_EQ(calculate_CRC32("123456789", 9), 0xCBF43926U);
    EXPECT_EQ(calculate_CRC32("123456789", 0), 0U);
    EXPECT_TRUE(check_CRC32("123456789", 9, 0xCBF43926U) == 1 && check_CRC32("123456789", 9, 0xCBF43927U) == 0);
}
