#include "common/imc_protocol/mem_pool.h"

#include <bit>
#include <cstddef>
#include <functional>

namespace {

constexpr int IMC_BAD_ARGUMENTS = 27;

class pool_guard {
public:
    explicit pool_guard(mem_pool_s& pool) : pool_(pool)
    {
        if (pool_.mempool_lock != nullptr)
            pool_.mempool_lock(pool_.lock_arg);
    }
    ~pool_guard()
    {
        if (pool_.mempool_unlock != nullptr)
            pool_.mempool_unlock(pool_.lock_arg);
    }
    pool_guard(const pool_guard&) = delete;
    pool_guard& operator=(const pool_guard&) = delete;

private:
    mem_pool_s& pool_;
};

}  // namespace

int IMC_init_mem_pool_free_list(mem_pool_s* pool, uint8_t* array, uint32_t size)
{
    if (pool == nullptr || array == nullptr || pool->mem_pool_block_size == 0)
        return -IMC_BAD_ARGUMENTS;
    pool_guard guard(*pool);
    pool->mem_pool_array = array;
    pool->mem_pool_size = size;
    uint32_t blocks = size / pool->mem_pool_block_size;
    if (blocks > IMC_MEM_POOL_MAX_BLOCKS)
        blocks = IMC_MEM_POOL_MAX_BLOCKS;
    pool->n_mem_pool_blocks = blocks;
    pool->free_list = blocks == IMC_MEM_POOL_MAX_BLOCKS ? 0xFFFFFFFFu : (1u << blocks) - 1u;
    return 0;
}

uint8_t* IMC_alloc_mem_pool_block(mem_pool_s* pool)
{
    if (pool == nullptr || pool->mem_pool_array == nullptr)
        return nullptr;
    pool_guard guard(*pool);
    if (pool->free_list == 0) {
        ++pool->mem_pool_full;
        return nullptr;
    }
    const int i = std::countr_zero(pool->free_list);
    pool->free_list &= ~(1u << i);
    return pool->mem_pool_array + static_cast<std::size_t>(i) * pool->mem_pool_block_size;
}

void IMC_free_mem_pool_block(mem_pool_s* pool, uint8_t* block)
{
    if (pool == nullptr || pool->mem_pool_array == nullptr || block == nullptr)
        return;
    // Ordered pointer comparison of unrelated pointers is unspecified with
    // the built-in operators; std::less gives the total order.
    const std::less<const uint8_t*> before;
    const uint8_t* start = pool->mem_pool_array;
    const uint8_t* end = start + static_cast<std::size_t>(pool->n_mem_pool_blocks) * pool->mem_pool_block_size;
    if (before(block, start) || !before(block, end))
        return;
    const auto offset = static_cast<std::size_t>(block - start);
    if (offset % pool->mem_pool_block_size != 0)
        return;
    pool_guard guard(*pool);
    pool->free_list |= 1u << (offset / pool->mem_pool_block_size);
}
