#include "common/imc_protocol/crc.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

const auto* const CHECK = reinterpret_cast<const uint8_t*>("123456789");

TEST(ImcCrc, Rfc1662CheckWithoutTheFinalComplement)
{
    // The RFC's FCS of "123456789" is 0x906E after the complement.
    EXPECT_EQ(CalcWordCRC(CHECK, 9), 0x6F91);
    EXPECT_EQ(CalcWordCRC(CHECK, 0), 0xFFFF);
    EXPECT_EQ(CalcWordCRC(nullptr, 9), 0xFFFF);
    // Continued in pieces, it ends where one pass does.
    EXPECT_EQ(CalcWordSeqCRC(CalcWordSeqCRC(0xFFFF, CHECK, 4), CHECK + 4, 5), 0x6F91);
    EXPECT_EQ(CalcWordSeqCRC(0x1234, CHECK, 0), 0x1234);
}

}  // namespace
