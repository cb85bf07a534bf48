// IMC stacks on Linux: creation and release with the system's allocator,
// ready-made locks, and the reading side of a link.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <mutex>

#include "common/imc_protocol/fcs.h"
#include "common/imc_protocol/imcprotocol.h"

// Creates a stack: the transaction table, the pool and its memory, the handle,
// the two event buffers and the stack itself, all zeroed. Returns the handle
// (its private_data is the caller's to set), or null when the configuration
// is unusable (no transactions or pool blocks, blocks or packages shorter than
// a header, a missing argument) or an allocation fails; nothing stays
// allocated then.
IMC_Stack_Handle_s* Stack_Init(IMC_Write_Func write, IMC_Event_Handler onEvent,
                               IMC_Request_Handler onRequest, const IMC_Config_s* config,
                               const IMC_Lock_Ops_s* lock_ops);
// Frees everything Stack_Init allocated; null is ignored.
void Stack_Release(IMC_Stack_Handle_s* handle);

// One stack's locks. The tick lock is recursive: handlers run under it and
// may send requests and replies.
struct IMC_Linux_Locks {
    std::mutex transaction;     // guards taking and releasing transactions
    std::mutex mempool;         // guards the pool's free list and counter
    std::mutex event;           // guards the event buffers
    std::mutex sequence;        // guards the sequence counter
    std::recursive_mutex tick;  // guards the transactions' states, parsing and ticks
};
// Lock functions over locks (which must outlive the stack).
IMC_Lock_Ops_s IMC_Linux_Lock_Ops(IMC_Linux_Locks* locks);

// The reading side of a link: frames of at most this length are accepted.
inline constexpr int32_t IMC_LINK_MAX_LEN = 200;

struct IMC_Link_Reader {
    status_s status;
    std::array<uint8_t, IMC_LINK_MAX_LEN + IMC_DECODE_OVERHEAD> buffer;
};
void IMC_Link_Reader_Init(IMC_Link_Reader* reader);

// Runs one piece read from the line through the decoder: every whole frame's
// message goes to IMC_Protocol_Parse, and after a frame or a decoder error
// the decoder is reset and goes on with the rest of the piece. Returns the
// number of messages handed on, or -1 for bad arguments.
int IMC_Link_Reader_Feed(IMC_Link_Reader* reader, IMC_Stack_Handle_s* handle, const uint8_t* data,
                         uint32_t len);

// Reads the link piece by piece and feeds each to a fresh reader until the
// read function reports the end (0: returns 0) or an error (negative:
// returns -1).
using IMC_Link_Read_Func = ssize_t (*)(void* ctx, uint8_t* buf, size_t size);
int IMC_Link_Read_Loop(IMC_Link_Read_Func read_fn, void* ctx, IMC_Stack_Handle_s* handle);
// The same over a descriptor (read(2), interrupted reads repeated).
int IMC_Link_Read_Fd(int fd, IMC_Stack_Handle_s* handle);
