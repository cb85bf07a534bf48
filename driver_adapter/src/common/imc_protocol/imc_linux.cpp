#include "common/imc_protocol/imc_linux.h"

#include <unistd.h>

#include <cerrno>
#include <limits>

#include "common/imc_protocol/imc_linux_internal.h"
#include "common/imc_protocol/imcprotocol_internal.h"
#include "common/imc_protocol/mem_pool.h"
#include "common/imc_protocol/platform.h"
#include "common/send_log.h"

namespace {

bool usable(const IMC_Config_s& c)
{
    // The pool's size is kept in 32 bits.
    return c.max_transaction_num > 0 && c.mem_block_num > 0 && c.mem_block_size >= IMC_HEADER_LEN &&
           c.max_package_length >= IMC_HEADER_LEN &&
           uint64_t{c.mem_block_size} * c.mem_block_num <= std::numeric_limits<uint32_t>::max();
}

IMC_Linux_Locks& locks_of(void* arg)
{
    return *static_cast<IMC_Linux_Locks*>(arg);
}

// The decoder's final errors, after which the reader starts over with the
// next frame. (It never stops in state 12: -12 only means bad arguments.)
bool decoder_failed(int rc)
{
    return rc == -DECODE_BadCrc || rc == -DECODE_BadMarker || rc == -DECODE_BadLength;
}

}  // namespace

IMC_Stack_Handle_s* Stack_Init(IMC_Write_Func write, IMC_Event_Handler onEvent,
                               IMC_Request_Handler onRequest, const IMC_Config_s* config,
                               const IMC_Lock_Ops_s* lock_ops)
{
    if (config == nullptr || lock_ops == nullptr || !usable(*config)) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): unusable stack configuration\n", DRV_POS);
        return nullptr;
    }
    const IMC_Config_s& c = *config;

    enum part { TABLE, POOL_MEMORY, POOL, HANDLE, EVENT_DATA, EVENT_LINK, STACK, PARTS };
    const std::array<std::array<std::size_t, 2>, PARTS> sizes = {{
        {c.max_transaction_num, sizeof(IMC_Transaction_s)},
        {c.mem_block_num, c.mem_block_size},
        {1, sizeof(mem_pool_s)},
        {1, sizeof(IMC_Stack_Handle_s)},
        {c.max_package_length, 1},
        {c.max_package_length, 1},
        {1, sizeof(IMC_Stack_s)},
    }};
    std::array<void*, PARTS> mem{};
    for (int i = 0; i < PARTS; ++i) {
        mem[i] = IMC_Platform_Calloc(sizes[i][0], sizes[i][1]);
        if (mem[i] == nullptr) {
            for (void* p : mem)
                IMC_Platform_Free(p);
            return nullptr;
        }
    }

    auto* pool = static_cast<mem_pool_s*>(mem[POOL]);
    pool->mem_pool_block_size = c.mem_block_size;
    pool->mempool_lock = lock_ops->mempool_lock;
    pool->mempool_unlock = lock_ops->mempool_unlock;
    pool->lock_arg = lock_ops->lock_arg;
    pool->mem_pool_size = c.mem_block_size * c.mem_block_num;
    pool->mem_pool_array = static_cast<uint8_t*>(mem[POOL_MEMORY]);

    auto* handle = static_cast<IMC_Stack_Handle_s*>(mem[HANDLE]);
    auto* s = static_cast<IMC_Stack_s*>(mem[STACK]);
    s->write = write;
    s->onEventReceivedFunctionPtr = onEvent;
    s->onRequestReceivedFunctionPtr = onRequest;
    s->transaction_lock = lock_ops->transaction_lock;
    s->transaction_unlock = lock_ops->transaction_unlock;
    s->transactionPtr = static_cast<IMC_Transaction_s*>(mem[TABLE]);
    s->mempoolPtr = pool;
    s->event_lock = lock_ops->event_lock;
    s->event_unlock = lock_ops->event_unlock;
    s->event_buff = {static_cast<uint8_t*>(mem[EVENT_DATA]), static_cast<uint8_t*>(mem[EVENT_LINK])};
    s->retry_Time = c.retry_time;
    s->max_RetryCount = c.max_retry_count;
    s->max_wait_Time = c.max_wait_time;
    s->sequence_lock = lock_ops->sequence_lock;
    s->sequence_unlock = lock_ops->sequence_unlock;
    s->transaction_num = c.max_transaction_num;
    s->max_package_length = c.max_package_length;
    s->tick_lock = lock_ops->tick_lock;
    s->tick_unlock = lock_ops->tick_unlock;
    s->lock_arg = lock_ops->lock_arg;
    s->stack_handle = handle;
    handle->stack_addr = s;
    IMC_Protocol_Init(handle);
    return handle;
}

void Stack_Release(IMC_Stack_Handle_s* handle)
{
    if (handle == nullptr)
        return;
    if (IMC_Stack_s* s = handle->stack_addr; s != nullptr) {
        IMC_Platform_Free(s->transactionPtr);
        if (s->mempoolPtr != nullptr)
            IMC_Platform_Free(s->mempoolPtr->mem_pool_array);
        IMC_Platform_Free(s->mempoolPtr);
        IMC_Platform_Free(s->event_buff.data_buff);
        IMC_Platform_Free(s->event_buff.link_data_buff);
        IMC_Platform_Free(s);
    }
    IMC_Platform_Free(handle);
}

IMC_Lock_Ops_s IMC_Linux_Lock_Ops(IMC_Linux_Locks* locks)
{
    return {
        [](void* a) { locks_of(a).transaction.lock(); },
        [](void* a) { locks_of(a).transaction.unlock(); },
        [](void* a) { locks_of(a).mempool.lock(); },
        [](void* a) { locks_of(a).mempool.unlock(); },
        [](void* a) { locks_of(a).event.lock(); },
        [](void* a) { locks_of(a).event.unlock(); },
        [](void* a) { locks_of(a).sequence.lock(); },
        [](void* a) { locks_of(a).sequence.unlock(); },
        [](void* a) { locks_of(a).tick.lock(); },
        [](void* a) { locks_of(a).tick.unlock(); },
        locks,
    };
}

void IMC_Link_Reader_Init(IMC_Link_Reader* reader)
{
    if (reader != nullptr)
        IMC_Decode_Reset(&reader->status, reader->buffer.data(), reader->buffer.size());
}

int IMC_Link_Feed(status_s* st, uint8_t* out, uint32_t room, int32_t max_len, IMC_Stack_Handle_s* handle,
                  const uint8_t* data, uint32_t len)
{
    if (st == nullptr || out == nullptr || (data == nullptr && len > 0) ||
        len > static_cast<uint32_t>(std::numeric_limits<int32_t>::max()))
        return -1;
    const uint8_t* in = data;
    auto left = static_cast<int32_t>(len);
    int messages = 0;
    while (left > 0) {
        const int rc = IMC_Decode_Frame(st, left, in, max_len);
        in = st->p_in;
        left = st->input_length;
        if (rc > 0) {
            IMC_Protocol_Parse(handle, st->p_start, static_cast<uint32_t>(st->length));
            ++messages;
        } else if (!decoder_failed(rc)) {
            break;  // input used up part-way through a frame, or no frame
        }
        IMC_Decode_Reset(st, out, room);
    }
    return messages;
}

int IMC_Link_Reader_Feed(IMC_Link_Reader* reader, IMC_Stack_Handle_s* handle, const uint8_t* data,
                         uint32_t len)
{
    if (reader == nullptr)
        return -1;
    return IMC_Link_Feed(&reader->status, reader->buffer.data(), reader->buffer.size(), IMC_LINK_MAX_LEN, handle,
                         data, len);
}

int IMC_Link_Read_Loop(IMC_Link_Read_Func read_fn, void* ctx, IMC_Stack_Handle_s* handle)
{
    if (read_fn == nullptr)
        return -1;
    IMC_Link_Reader reader;
    IMC_Link_Reader_Init(&reader);
    std::array<uint8_t, 256> piece;
    for (;;) {
        const ssize_t n = read_fn(ctx, piece.data(), piece.size());
        if (n == 0)
            return 0;
        if (n < 0)
            return -1;
        IMC_Link_Reader_Feed(&reader, handle, piece.data(), static_cast<uint32_t>(n));
    }
}

int IMC_Link_Read_Fd(int fd, IMC_Stack_Handle_s* handle)
{
    return IMC_Link_Read_Loop(
        [](void* ctx, uint8_t* buf, size_t size) {
            ssize_t n;
            do {
                n = read(*static_cast<int*>(ctx), buf, size);
            } while (n < 0 && errno == EINTR);
            return n;
        },
        &fd, handle);
}
