// Fixed pool of equal blocks for the IMC stack: at most 32 blocks, tracked by
// a bit mask (bit i set = block i free).
#pragma once

#include <cstdint>

inline constexpr uint32_t IMC_MEM_POOL_MAX_BLOCKS = 32;

using IMC_Lock_Func = void (*)(void* lock_arg);

struct mem_pool_s {
    uint8_t* mem_pool_array;
    uint32_t mem_pool_size;        // bytes of mem_pool_array
    uint32_t mem_pool_block_size;  // set before the free list is built
    uint32_t n_mem_pool_blocks;
    uint32_t free_list;      // guarded by the pool lock
    uint32_t mem_pool_full;  // failed allocations; guarded by the pool lock
    IMC_Lock_Func mempool_lock;  // either may be null: no locking
    IMC_Lock_Func mempool_unlock;
    void* lock_arg;  // passed to both
};

// Takes size bytes of array as the pool's blocks (size / block size of them,
// at most 32), all free. 0, or -27 for a missing pool or array or a block
// size of 0.
int IMC_init_mem_pool_free_list(mem_pool_s* pool, uint8_t* array, uint32_t size);
// The lowest free block, or null (counted in mem_pool_full) when none is free.
uint8_t* IMC_alloc_mem_pool_block(mem_pool_s* pool);
// Gives a block back; pointers that are not the start of one of the pool's
// blocks are ignored.
void IMC_free_mem_pool_block(mem_pool_s* pool, uint8_t* block);
