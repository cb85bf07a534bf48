// The links' checksums: the IMC frame's CRC-16 and the drivers' CRC-8.
#include "common/crc8.h"
#include "common/imc_protocol/crc.h"
#include "support/adapter.h"

TEST(Checksums, KnownValuesOfBothCrcs)
{
    const auto* const check = reinterpret_cast<const uint8_t*>("123456789\xA2\x80");
    const std::tuple<const uint8_t*, uint32_t, uint16_t, uint8_t> cases[] = {
        {check, 9, 0x6F91, 0xA2},  // the FCS of RFC 1662 is 0x906E, after a complement left out here
        {check, 0, 0xFFFF, 0},
        {nullptr, 9, 0xFFFF, 0},
        {check, 10, 0x0377, 0},  // CRC-8 starts at 0 with no final XOR: data and its CRC leave 0
        {check + 10, 1, 0x8B8F, 0x7A},
    };
    for (const auto& [data, len, crc16, crc8] : cases) {
        EXPECT_EQ(CalcWordCRC(data, len), crc16) << len;
        EXPECT_EQ(getCRC8(data, len), crc8) << len;
    }
    EXPECT_EQ(CalcWordSeqCRC(CalcWordSeqCRC(IMC_CRC_INIT, check, 4), check + 4, 5), 0x6F91);  // as in one pass
    EXPECT_EQ(CalcWordSeqCRC(0x1234, check, 0), 0x1234);
}
