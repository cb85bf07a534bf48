#include "common/ringbuffer/ringbuffer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "common/send_log.h"

namespace {

constexpr uint32_t KFIFO_MAX_SIZE = 0x80000000u;

// n bytes from the ring starting at counter `from`, in two pieces when they
// wrap.
void copy_out(const kfifo& f, uint32_t from, uint8_t* out, uint32_t n)
{
    const uint32_t pos = from & (f.size - 1);
    const uint32_t first = std::min(n, f.size - pos);
    std::memcpy(out, f.buffer + pos, first);
    std::memcpy(out + first, f.buffer, n - first);
}

void copy_in(kfifo& f, uint32_t to, const uint8_t* data, uint32_t n)
{
    const uint32_t pos = to & (f.size - 1);
    const uint32_t first = std::min(n, f.size - pos);
    std::memcpy(f.buffer + pos, data, first);
    std::memcpy(f.buffer, data + first, n - first);
}

// Bytes filled; the caller holds read_lock, so out is its own.
uint32_t filled(const kfifo& f)
{
    return f.in.load(std::memory_order_acquire) - f.out.load(std::memory_order_relaxed);
}

}  // namespace

kfifo* kfifo_init(uint8_t* buffer, uint32_t size)
{
    if (buffer == nullptr || !std::has_single_bit(size))
        return nullptr;
    auto* f = new (std::nothrow) kfifo();
    if (f == nullptr) {
        send_log(DRV_LOG_ERR, "new fifo failed.");
        return nullptr;
    }
    f->buffer = buffer;
    f->size = size;
    return f;
}

kfifo* kfifo_alloc(uint32_t size)
{
    if (size > KFIFO_MAX_SIZE) {
        send_log(DRV_LOG_ERR, "FIFO size over the max.");
        return nullptr;
    }
    // A size of 0 becomes 1, the smallest power of two.
    size = std::bit_ceil(size);
    auto* buffer = new (std::nothrow) uint8_t[size];
    if (buffer == nullptr) {
        send_log(DRV_LOG_ERR, "new buffer failed.");
        return nullptr;
    }
    kfifo* f = kfifo_init(buffer, size);
    if (f == nullptr) {
        send_log(DRV_LOG_ERR, "%s:ret failed.\n", "kfifo_alloc");
        delete[] buffer;
        return nullptr;
    }
    f->owns_buffer = true;
    return f;
}

void kfifo_free(kfifo* f)
{
    if (f == nullptr)
        return;
    if (f->owns_buffer)
        delete[] f->buffer;
    delete f;
}

uint32_t kfifo_put(kfifo* f, const uint8_t* data, uint32_t len)
{
    if (f == nullptr || data == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(f->write_lock);
    const uint32_t in = f->in.load(std::memory_order_relaxed);
    const uint32_t used = in - f->out.load(std::memory_order_acquire);
    const uint32_t n = std::min(len, f->size - used);
    copy_in(*f, in, data, n);
    f->in.store(in + n, std::memory_order_release);
    return n;
}

uint32_t kfifo_copy(kfifo* f, uint8_t* out, uint32_t len)
{
    if (f == nullptr || out == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(f->read_lock);
    const uint32_t n = std::min(len, filled(*f));
    copy_out(*f, f->out.load(std::memory_order_relaxed), out, n);
    return n;
}

uint32_t kfifo_get(kfifo* f, uint8_t* out, uint32_t len)
{
    if (f == nullptr || out == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(f->read_lock);
    const uint32_t from = f->out.load(std::memory_order_relaxed);
    const uint32_t n = std::min(len, filled(*f));
    copy_out(*f, from, out, n);
    f->out.store(from + n, std::memory_order_release);
    return n;
}

uint32_t kfifo_discard(kfifo* f, uint32_t len)
{
    if (f == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(f->read_lock);
    const uint32_t n = std::min(len, filled(*f));
    f->out.store(f->out.load(std::memory_order_relaxed) + n, std::memory_order_release);
    return n;
}

uint32_t kfifo_len(kfifo* f)
{
    if (f == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(f->read_lock);
    return filled(*f);
}

uint32_t kfifo_free_len(kfifo* f)
{
    if (f == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(f->write_lock);
    return f->size - (f->in.load(std::memory_order_relaxed) - f->out.load(std::memory_order_acquire));
}

void kfifo_reset(kfifo* f)
{
    if (f == nullptr)
        return;
    std::lock_guard<std::mutex> read_guard(f->read_lock);
    std::lock_guard<std::mutex> write_guard(f->write_lock);
    f->in.store(0, std::memory_order_relaxed);
    f->out.store(0, std::memory_order_relaxed);
}
