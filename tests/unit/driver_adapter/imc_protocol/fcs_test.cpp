// IMC framing: known frames byte for byte, decoding in pieces, bad frames refused in bounds.
#include "common/imc_protocol/fcs.h"

#include "support/adapter.h"

using namespace testsupport;
const Bytes& PLAIN = IMC_FRAMES[0].frame;

// The decoder over a buffer of `room` bytes followed by 16 canary bytes.
struct decoder {
    explicit decoder(uint32_t room = 256) : out(room + 16, 0xCC) { IMC_Decode_Reset(&st, out.data(), room); }
    int run(const Bytes& in, size_t from, size_t n, int32_t max_len = 200)
    {
        return IMC_Decode_Frame(&st, static_cast<int32_t>(n), in.data() + from, max_len);
    }
    Bytes out;
    status_s st{};
};

TEST(ImcFrame, KnownFramesEncodeByteForByteAndDecodeInPiecesOfAnySize)
{
    for (const auto& f : IMC_FRAMES) {
        Bytes out(f.frame.size());
        ASSERT_EQ(IMC_Encode_Frame(f.message.size(), f.message.data(), out.data(), out.size()), f.frame.size());
        EXPECT_EQ(out, f.frame) << f.name;
        EXPECT_EQ(IMC_Encode_Frame(f.message.size(), f.message.data(), out.data(), out.size() - 1), 0u) << f.name;

        const Bytes stream = Bytes{0x55, 0x00, 0x7D} + f.frame;  // noise before the frame
        const Bytes want = Bytes{0x00, 0x00, static_cast<uint8_t>(f.message.size())} + f.message;
        for (size_t piece = 1; piece <= stream.size(); ++piece) {
            SCOPED_TRACE(std::string(f.name) + ", pieces of " + std::to_string(piece));
            decoder d;
            int rc = 0;
            for (size_t at = 0; at < stream.size(); at += piece) {
                ASSERT_LE(rc, 0);
                rc = d.run(stream, at, std::min(piece, stream.size() - at));
            }
            ASSERT_EQ(rc, static_cast<int>(want.size()));
            EXPECT_EQ(Bytes(d.out.begin(), d.out.begin() + rc), want);
            EXPECT_TRUE(d.st.p_start == d.out.data() + 3 && d.st.input_length == 0);
        }
    }
    for (uint32_t n : {0x7Du, 0x7Eu}) {  // lengths that need escaping
        const Bytes message(n, 0x01);
        Bytes out(2 * n + 16);
        ASSERT_GT(IMC_Encode_Frame(n, message.data(), out.data(), out.size()), 0u);
        EXPECT_EQ(Bytes(out.begin() + 3, out.begin() + 6), (Bytes{0x00, 0x7D, static_cast<uint8_t>(n ^ 0x20)}));
    }
}

TEST(ImcFrame, StopsInTheStateWhereTheInputEndsAndRefusesBadFramesWithoutWritingBeyondItsBuffer)
{
    // Lead-in, flag, marker, length (2), message (7), CRC (2).
    const int after[] = {0, 0, -2, -3, -4, -5, -5, -5, -5, -5, -5, -5, -6, -7, 10};
    for (size_t cut = 0; cut < std::size(after); ++cut)
        EXPECT_EQ(decoder().run(PLAIN, 0, cut), after[cut]) << "cut after " << cut;

    Bytes bad_crc = PLAIN;
    bad_crc.back() ^= 1;
    const std::tuple<const char*, Bytes, int32_t, int, int32_t> cases[] = {
        {"marker not 0 (left for the next hunt)", {0x7E, 0x7E, 0x00, 0x00}, 200, -11, 3},
        {"length above max_len", {0x7E, 0x00, 0x00, 0x08, 0x01}, 7, -13, 1},
        {"negative length", {0x7E, 0x00, 0x80, 0x00, 0x01}, 0x7FFFFFFF, -13, 1},
        {"longer than the output buffer", {0x7E, 0x00, 0x00, 0x0E, 0x01}, 0x7FFFFFFF, -13, 1},
        {"CRC mismatch", bad_crc, 200, -10, 0},
    };
    for (const auto& [name, input, max_len, rc, unused] : cases) {
        SCOPED_TRACE(name);
        decoder d(16);
        EXPECT_EQ(d.run(input, 0, input.size(), max_len), rc);
        EXPECT_EQ(d.st.input_length, unused);
        EXPECT_EQ(d.run(PLAIN, 0, PLAIN.size()), rc);  // a final state stays until the caller resets
        EXPECT_TRUE(std::all_of(d.out.end() - 16, d.out.end(), [](uint8_t b) { return b == 0xCC; }));
    }
}
