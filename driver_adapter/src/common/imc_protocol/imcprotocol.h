// IMC: the request/reply protocol with the board's microcontrollers over a
// byte stream. One stack per link; each request/reply exchange runs as a
// transaction with its own state machine, retries and time-outs. Stacks are
// created and released by imc_linux (Stack_Init, Stack_Release).
//
// Return codes: 0 for success, else a negated code:
//   1 bad version, 3 unknown class, 4 message shorter than its length field,
//   9 no transaction for a reply or reply-ack, 11 no write function or no
//   pool, 12 too long or no memory, 17 no free transaction, 18 frame not
//   written whole, 19 message does not fit, 20 no message, 21 no stack,
//   22 no action for the state and event, 24 clock failed, 26 transaction
//   not in the right state, 27 bad arguments.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/imc_protocol/mem_pool.h"

enum mdClass_t : uint8_t {
    CLASS_Event = 0,
    CLASS_Request = 1,
    CLASS_Reply = 2,
    CLASS_ReplyACK = 3,
    CLASS_Reserved5 = 4,
    CLASS_Reserved6 = 5,
    CLASS_Reserved7 = 6,
};

enum imcType_t : uint8_t {
    TYPE_Active = 1,   // this side sent the request
    TYPE_Passive = 2,  // this side received it
};

enum imcState_t : uint8_t {
    STATE_Initial = 0,
    STATE_RequestReceived = 1,
    STATE_RequestSent = 2,
    STATE_ReplySent = 3,
    STATE_Completed = 4,
    STATE_Reserved5 = 5,
};
inline constexpr int IMC_STATE_COUNT = 6;

enum imcEvent_t : uint8_t {
    Event_SendRequest = 0,
    Event_ReceiveReuest = 1,
    Event_SendReply = 2,
    Event_ReceiveReply = 3,
    Event_ReceiveReplyAck = 4,
    Event_Tick = 5,
    Event_Event = 6,
    Event_Reserved7 = 7,
};
inline constexpr int IMC_EVENT_COUNT = 8;

// Result codes (returned negated by the public functions).
enum imc_code : int {
    IMC_OK = 0,
    IMC_ERR_VERSION = 1,
    IMC_ERR_CLASS = 3,
    IMC_ERR_LENGTH = 4,
    IMC_ERR_NO_MATCH = 9,
    IMC_ERR_NO_LINK = 11,
    IMC_ERR_NO_MEMORY = 12,
    IMC_ERR_NO_TRANSACTION = 17,
    IMC_ERR_SHORT_WRITE = 18,
    IMC_ERR_NO_FIT = 19,
    IMC_ERR_NO_MESSAGE = 20,
    IMC_ERR_NO_STACK = 21,
    IMC_ERR_NULL_ACTION = 22,
    IMC_ERR_CLOCK = 24,
    IMC_ERR_STATE = 26,
    IMC_ERR_ARGUMENTS = 27,
};

// The message header on the wire; the u16 fields are big-endian.
inline constexpr uint8_t IMC_VERSION = 1;
struct IMC_WireHeader {
    uint8_t version;
    uint8_t msg_class;
    uint8_t sequence[2];
    uint8_t length[2];
};
static_assert(sizeof(IMC_WireHeader) == 6);
static_assert(offsetof(IMC_WireHeader, version) == 0);
static_assert(offsetof(IMC_WireHeader, msg_class) == 1);
static_assert(offsetof(IMC_WireHeader, sequence) == 2);
static_assert(offsetof(IMC_WireHeader, length) == 4);
inline constexpr uint32_t IMC_HEADER_LEN = sizeof(IMC_WireHeader);

// The parsed header.
struct IMC_MessageHeader_s {
    uint8_t m_Version;
    uint8_t m_Class;
    uint16_t m_SequenceCount;
    uint16_t m_Length;
};

struct IMC_Config_s {
    uint32_t retry_time;  // ms
    uint32_t max_retry_count;
    uint32_t max_wait_time;  // ms
    uint32_t max_transaction_num;
    uint32_t max_package_length;  // bytes
    uint32_t mem_block_size;      // bytes
    uint32_t mem_block_num;
};
// The front-board links' settings.
inline constexpr IMC_Config_s IMC_FRONT_BOARD_CONFIG = {150, 1, 1000, 10, 200, 200, 20};

// The user's lock functions, each called with lock_arg (so that every stack
// may have its own locks). A null function does nothing: a stack used from
// one thread only needs none. The tick lock must be recursive when handlers
// call back into the stack (imc_linux's locks are).
struct IMC_Lock_Ops_s {
    IMC_Lock_Func transaction_lock;
    IMC_Lock_Func transaction_unlock;
    IMC_Lock_Func mempool_lock;
    IMC_Lock_Func mempool_unlock;
    IMC_Lock_Func event_lock;
    IMC_Lock_Func event_unlock;
    IMC_Lock_Func sequence_lock;
    IMC_Lock_Func sequence_unlock;
    IMC_Lock_Func tick_lock;
    IMC_Lock_Func tick_unlock;
    void* lock_arg;
};

struct IMC_Stack_s;
struct IMC_Transaction_s;

// What users hold. private_data is theirs: it is passed to the write function
// and the handlers.
struct IMC_Stack_Handle_s {
    void* private_data;
    IMC_Stack_s* stack_addr;
};

// Writes a frame to the link; returns the bytes written, or a negative value.
using IMC_Write_Func = int (*)(void* private_data, const uint8_t* data, uint32_t len);
// Payloads are valid for the call only. The event handler's result is what
// IMC_Protocol_Parse returns for the event.
using IMC_Event_Handler = int (*)(void* private_data, const uint8_t* payload, uint16_t len);
// Answers with IMC_Protocol_SendReply, from inside the handler or later from
// any thread, but before the stack's max_wait_Time drops the transaction; the
// payload stays valid until the handler returns.
using IMC_Request_Handler = void (*)(IMC_Transaction_s* transaction, void* private_data,
                                     const uint8_t* payload, uint16_t len);
using IMC_Reply_Handler = void (*)(void* private_data, const uint8_t* payload, uint16_t len);
// Called when a request has gone unanswered after its retries.
using IMC_NoReply_Handler = void (*)();

// Clears the transaction table and rebuilds the pool. 0 or -27.
int IMC_Protocol_Init(IMC_Stack_Handle_s* handle);

// Sends a request (its first byte is the command code) and keeps it until
// the reply, retrying on the ticks. 0 (also for a short write, which the
// retries cover), -27, -12 (too long for a package, or no pool block), -19
// (longer than a pool block), -17 (no transaction), or the send's code.
int IMC_Protocol_SendRequest(IMC_Stack_Handle_s* handle, const uint8_t* data, uint32_t len,
                             IMC_Reply_Handler reply_handler, IMC_NoReply_Handler noreply_handler);

// Answers a received request. 0, -27, -11, -26 (not waiting for a reply),
// -19, -12, or the send's code.
int IMC_Protocol_SendReply(IMC_Transaction_s* transaction, const uint8_t* data, uint32_t len);

// Sends an event (no transaction, no reply). 0, -27, -12, or -18 when the
// frame was not written whole.
int IMC_Protocol_SendEvent(IMC_Stack_Handle_s* handle, uint32_t len, const uint8_t* data);

// Handles one decoded message of len bytes. 0 or a negated code; for an
// event, the event handler's result.
int IMC_Protocol_Parse(IMC_Stack_Handle_s* handle, const uint8_t* message, uint32_t len);

// Resends unanswered requests and drops stale transactions; call it
// periodically (it acts at most once per retry time). 0, -27 or -24.
int IMC_Protocol_TimeTick(IMC_Stack_Handle_s* handle);

// Checks and parses the header of a len-byte message: 0, or 27 (missing
// input or shorter than a header), 1 (version), 3 (class) or 4 (shorter than
// the header and its length field say).
int IMC_Header_Parse(const uint8_t* data, uint32_t len, IMC_MessageHeader_s* header);
