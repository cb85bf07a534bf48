// The IMC pool's block accounting and its bounds.
#include "common/imc_protocol/mem_pool.h"

#include "support/adapter.h"

TEST(ImcMemPool, HandsOutTheLowestFreeBlockAndCountsFailures)
{
    std::array<uint8_t, 3 * 8 + 5> mem{};
    mem_pool_s pool{};
    pool.mem_pool_block_size = 8;
    ASSERT_EQ(IMC_init_mem_pool_free_list(&pool, mem.data(), mem.size()), 0);
    EXPECT_EQ(pool.n_mem_pool_blocks, 3u);  // the 5 bytes left over make no block
    for (size_t at : {0, 8, 16})
        EXPECT_EQ(IMC_alloc_mem_pool_block(&pool), mem.data() + at);
    EXPECT_EQ(IMC_alloc_mem_pool_block(&pool), nullptr);
    EXPECT_EQ(pool.mem_pool_full, 1u);
    // The middle of a block, the bytes left over or memory elsewhere change nothing.
    uint8_t elsewhere = 0;
    for (uint8_t* p : {mem.data() + 9, mem.data() + 24, &elsewhere, static_cast<uint8_t*>(nullptr)})
        IMC_free_mem_pool_block(&pool, p);
    EXPECT_EQ(pool.free_list, 0u);
    IMC_free_mem_pool_block(&pool, mem.data() + 8);
    EXPECT_EQ(IMC_alloc_mem_pool_block(&pool), mem.data() + 8);

    std::array<uint8_t, 40> bytes{};  // at most 32 blocks are tracked
    pool.mem_pool_block_size = 1;
    ASSERT_EQ(IMC_init_mem_pool_free_list(&pool, bytes.data(), bytes.size()), 0);
    EXPECT_EQ(pool.free_list, 0xFFFFFFFFu);
}
