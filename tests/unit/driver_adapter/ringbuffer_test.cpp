#include "common/ringbuffer/ringbuffer.h"

#include <gtest/gtest.h>

#include <array>

namespace {

TEST(Kfifo, RoundsItsSizeUpToAPowerOfTwo)
{
    const std::array<std::pair<uint32_t, uint32_t>, 4> sizes = {{{0, 1}, {5, 8}, {8, 8}, {1000, 1024}}};
    for (const auto& [asked, got] : sizes) {
        kfifo* f = kfifo_alloc(asked);
        ASSERT_NE(f, nullptr) << asked;
        EXPECT_EQ(f->size, got);
        EXPECT_EQ(kfifo_free_len(f), got);
        kfifo_free(f);
    }
    EXPECT_EQ(kfifo_alloc(0x80000001u), nullptr);
    std::array<uint8_t, 6> odd{};
    EXPECT_EQ(kfifo_init(odd.data(), odd.size()), nullptr);
}

TEST(Kfifo, CopiesAcrossTheWrapInBothDirections)
{
    kfifo* f = kfifo_alloc(8);
    const std::array<uint8_t, 10> in = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    std::array<uint8_t, 10> out{};
    EXPECT_EQ(kfifo_put(f, in.data(), 6), 6u);
    EXPECT_EQ(kfifo_get(f, out.data(), 4), 4u);
    // 6 more fit only as 6 of 8: two at the end of the buffer, four at its start.
    EXPECT_EQ(kfifo_put(f, in.data() + 4, 6), 6u);
    EXPECT_EQ(kfifo_put(f, in.data(), 10), 0u);
    EXPECT_EQ(kfifo_len(f), 8u);
    EXPECT_EQ(kfifo_copy(f, out.data(), 3), 3u);
    EXPECT_EQ(kfifo_discard(f, 1), 1u);
    EXPECT_EQ(kfifo_get(f, out.data() + 3, 10), 7u);
    EXPECT_EQ(out, (std::array<uint8_t, 10>{5, 6, 5, 6, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(kfifo_discard(f, 5), 0u);

    kfifo_put(f, in.data(), 3);
    kfifo_reset(f);
    EXPECT_EQ(kfifo_len(f), 0u);
    EXPECT_EQ(kfifo_free_len(f), 8u);
    kfifo_free(f);
}

}  // namespace
