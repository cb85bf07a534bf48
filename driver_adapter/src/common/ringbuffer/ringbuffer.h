// Power-of-two byte ring for the drivers' receive paths. One writer and one
// reader may work at once: each side has its own lock, and the counters they
// share are atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

struct kfifo {
    uint8_t* buffer;
    uint32_t size;  // a power of two
    // Free-running counters; a position is the counter masked with size - 1.
    std::atomic<uint32_t> in;
    std::atomic<uint32_t> out;
    std::mutex read_lock;   // serialises readers (get, copy, discard, len)
    std::mutex write_lock;  // serialises writers (put, free_len)
    bool owns_buffer;       // made by kfifo_alloc: kfifo_free releases it
};

// A ring over the caller's size bytes (a power of two), or null. The bytes
// stay the caller's: kfifo_free does not release them for such a ring.
kfifo* kfifo_init(uint8_t* buffer, uint32_t size);
// A ring of size bytes rounded up to a power of two (at most 2^31), or null.
kfifo* kfifo_alloc(uint32_t size);
void kfifo_free(kfifo* fifo);

// Each copies min(len, what there is) bytes and returns the count.
uint32_t kfifo_put(kfifo* fifo, const uint8_t* data, uint32_t len);
uint32_t kfifo_get(kfifo* fifo, uint8_t* out, uint32_t len);
uint32_t kfifo_copy(kfifo* fifo, uint8_t* out, uint32_t len);  // leaves the bytes in
uint32_t kfifo_discard(kfifo* fifo, uint32_t len);

uint32_t kfifo_len(kfifo* fifo);
uint32_t kfifo_free_len(kfifo* fifo);
void kfifo_reset(kfifo* fifo);
