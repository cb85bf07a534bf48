// The drivers' byte ring: sizes rounded to a power of two, copies across the wrap.
#include "common/ringbuffer/ringbuffer.h"

#include "support/adapter.h"

TEST(Kfifo, RoundsItsSizeUpToAPowerOfTwoAndCopiesAcrossTheWrap)
{
    for (const auto& [asked, got] : {std::pair{0u, 1u}, {5u, 8u}, {8u, 8u}, {1000u, 1024u}}) {
        kfifo* f = kfifo_alloc(asked);
        ASSERT_NE(f, nullptr) << asked;
        EXPECT_TRUE(f->size == got && kfifo_free_len(f) == got) << asked;
        kfifo_free(f);
    }
    EXPECT_EQ(kfifo_alloc(0x80000001u), nullptr);
    std::array<uint8_t, 6> odd{};
    EXPECT_EQ(kfifo_init(odd.data(), odd.size()), nullptr);

    kfifo* f = kfifo_alloc(8);
    const std::array<uint8_t, 10> in = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    std::array<uint8_t, 10> out{};
    EXPECT_EQ(kfifo_put(f, in.data(), 6), 6u);
    EXPECT_EQ(kfifo_get(f, out.data(), 4), 4u);
    EXPECT_EQ(kfifo_put(f, in.data() + 4, 6), 6u);  // two at the end of the buffer, four at its start
    EXPECT_EQ(kfifo_put(f, in.data(), 10), 0u);
    EXPECT_EQ(kfifo_len(f), 8u);
    EXPECT_EQ(kfifo_copy(f, out.data(), 3), 3u);
    EXPECT_EQ(kfifo_discard(f, 1), 1u);
    EXPECT_EQ(kfifo_get(f, out.data() + 3, 10), 7u);
    EXPECT_EQ(out, (std::array<uint8_t, 10>{5, 6, 5, 6, 5, 6, 7, 8, 9, 10}));
    EXPECT_EQ(kfifo_discard(f, 5), 0u);
    kfifo_free(f);
}
