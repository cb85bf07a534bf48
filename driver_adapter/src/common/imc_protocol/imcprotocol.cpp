#include "common/imc_protocol/imcprotocol.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "common/imc_protocol/fcs.h"
#include "common/imc_protocol/imcprotocol_internal.h"
#include "common/imc_protocol/platform.h"
#include "common/send_log.h"

namespace {

// Holds one of the user's lock pairs for a scope.
class user_lock {
public:
    user_lock(IMC_Lock_Func lock, IMC_Lock_Func unlock, void* arg) : unlock_(unlock), arg_(arg)
    {
        if (lock != nullptr)
            lock(arg);
    }
    ~user_lock()
    {
        if (unlock_ != nullptr)
            unlock_(arg_);
    }
    user_lock(const user_lock&) = delete;
    user_lock& operator=(const user_lock&) = delete;

private:
    IMC_Lock_Func unlock_;
    void* arg_;
};

user_lock tick_lock(const IMC_Stack_s& s)
{
    return {s.tick_lock, s.tick_unlock, s.lock_arg};
}

uint16_t get_be16(const uint8_t* p)
{
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

void put_be16(uint8_t* p, uint16_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

// Writes a message of IMC_HEADER_LEN + len bytes to out (which holds them).
void build_message(uint8_t* out, mdClass_t cls, uint16_t seq, const uint8_t* data, uint16_t len)
{
    out[offsetof(IMC_WireHeader, version)] = IMC_VERSION;
    out[offsetof(IMC_WireHeader, msg_class)] = cls;
    put_be16(out + offsetof(IMC_WireHeader, sequence), seq);
    put_be16(out + offsetof(IMC_WireHeader, length), len);
    if (len > 0)
        std::memcpy(out + IMC_HEADER_LEN, data, len);
}

uint16_t message_length(const uint8_t* message)
{
    return get_be16(message + offsetof(IMC_WireHeader, length));
}

// The command code of a stored message (its first payload byte), 0 when it
// has no payload.
unsigned command_of(const uint8_t* message)
{
    if (message == nullptr || message_length(message) == 0)
        return 0;
    return message[IMC_HEADER_LEN];
}

IMC_Stack_s* stack_of(const IMC_Stack_Handle_s* handle)
{
    return handle == nullptr ? nullptr : handle->stack_addr;
}

void* private_data_of(const IMC_Stack_s& s)
{
    return s.stack_handle == nullptr ? nullptr : s.stack_handle->private_data;
}

uint32_t block_size(const IMC_Stack_s& s)
{
    return s.mempoolPtr == nullptr ? 0 : s.mempoolPtr->mem_pool_block_size;
}

// The clock for an action; a failure is logged at the action's position.
bool read_clock(uint64_t& now, const char* func, int line)
{
    if (IMC_Platform_Time(&now) == 0)
        return true;
    send_log(DRV_LOG_ERR, "%s:%d:%s(): get time stamp failed!\n", __FILE_NAME__, line, func);
    return false;
}

uint64_t elapsed(uint64_t now, uint64_t since)
{
    return now > since ? now - since : 0;
}

IMC_Transaction_s* take_transaction(IMC_Stack_s& s, imcType_t type)
{
    const user_lock guard(s.transaction_lock, s.transaction_unlock, s.lock_arg);
    for (uint32_t i = 0; i < s.transaction_num; ++i) {
        IMC_Transaction_s& t = s.transactionPtr[i];
        if (t.in_use)
            continue;
        t = IMC_Transaction_s{};
        t.in_use = true;
        t.m_Type = type;
        t.m_State = STATE_Initial;
        t.m_Stack = &s;
        return &t;
    }
    return nullptr;
}

void release_transaction(IMC_Transaction_s& t)
{
    IMC_Stack_s& s = *t.m_Stack;
    IMC_free_mem_pool_block(s.mempoolPtr, t.m_command_buf);
    IMC_free_mem_pool_block(s.mempoolPtr, t.m_parked_buf);
    const user_lock guard(s.transaction_lock, s.transaction_unlock, s.lock_arg);
    t = IMC_Transaction_s{};
    t.m_Stack = &s;
}

// A transaction still in its initial state after its first action failed
// would never be visited again by the ticks: it is given back.
void drop_if_initial(IMC_Transaction_s& t)
{
    if (t.in_use && t.m_State == STATE_Initial)
        release_transaction(t);
}

uint16_t next_sequence(IMC_Stack_s& s)
{
    const user_lock guard(s.sequence_lock, s.sequence_unlock, s.lock_arg);
    s.my_sequence = static_cast<uint16_t>(s.my_sequence + 1);
    return s.my_sequence;
}

// Sends the transaction's message; when it went out whole (or short, when
// short_counts), moves to `next` with `stamp` set to the time.
int send_and_move(IMC_Transaction_s* t, bool short_counts, imcState_t next, uint64_t IMC_Transaction_s::*stamp,
                  const char* func, int line)
{
    uint64_t now = 0;
    if (!read_clock(now, func, line))
        return IMC_ERR_CLOCK;
    const int rc = Send_Packet(t);
    if (rc == IMC_OK || (short_counts && rc == IMC_ERR_SHORT_WRITE)) {
        t->m_State = next;
        t->*stamp = now;
    }
    return rc;
}

// ---- actions of the state table; each returns its code (0 for success) ----

int Action_Null(IMC_Transaction_s*)
{
    send_log(DRV_LOG_ERR, "%s:%d:%s(): Action_Null  is called, there may be something wrong!\n",
             DRV_POS);
    return IMC_ERR_NULL_ACTION;
}

int Action_SendRequest(IMC_Transaction_s* t)
{
    // A short write counts as sent: the retries cover it.
    return send_and_move(t, true, STATE_RequestSent, &IMC_Transaction_s::req_send_time, __func__, __LINE__);
}

int Action_ProcessRequest(IMC_Transaction_s* t)
{
    uint64_t now = 0;
    if (!read_clock(now, __func__, __LINE__))
        return IMC_ERR_CLOCK;
    t->m_State = STATE_RequestReceived;
    t->req_recv_time = now;
    IMC_Stack_s& s = *t->m_Stack;
    if (s.onRequestReceivedFunctionPtr != nullptr) {
        t->m_in_handler = true;
        s.onRequestReceivedFunctionPtr(t, private_data_of(s), t->m_command_buf + IMC_HEADER_LEN,
                                       t->m_Header.m_Length);
        t->m_in_handler = false;
        IMC_free_mem_pool_block(s.mempoolPtr, t->m_parked_buf);
        t->m_parked_buf = nullptr;
    }
    return IMC_OK;
}

int Action_SendReply(IMC_Transaction_s* t)
{
    return send_and_move(t, false, STATE_ReplySent, &IMC_Transaction_s::reply_send_time, __func__, __LINE__);
}

int Action_MoveToCompleted(IMC_Transaction_s* t)
{
    t->m_State = STATE_Completed;
    release_transaction(*t);
    return IMC_OK;
}

int Action_AcknowledgeReply(IMC_Transaction_s* t)
{
    IMC_Stack_s& s = *t->m_Stack;
    if (t->reply_handler != nullptr)
        t->reply_handler(private_data_of(s), t->m_command_buf + IMC_HEADER_LEN, t->m_Header.m_Length);
    // The block held the reply; the acknowledgement (header only) replaces it.
    build_message(t->m_command_buf, CLASS_ReplyACK, t->m_Header.m_SequenceCount, nullptr, 0);
    // A lost acknowledgement is the peer's to clean up (its wait time-out).
    Send_Packet(t);
    t->m_State = STATE_Completed;
    release_transaction(*t);
    return IMC_OK;
}

int Action_ResendReply(IMC_Transaction_s* t)
{
    send_log(DRV_LOG_INFO, "%s:%d:%s(): resend reply:seq=%d cmd=0x%x\n", DRV_POS,
             t->m_Header.m_SequenceCount, command_of(t->m_command_buf));
    return Send_Packet(t);
}

// The tick's work is done by IMC_Protocol_TimeTick; these keep the table's
// tick cells free of Action_Null.
int Action_CheckReplyTimeout(IMC_Transaction_s*)
{
    return IMC_OK;
}
int Action_CheckRetryTimeout(IMC_Transaction_s*)
{
    return IMC_OK;
}
int Action_CheckReplyAckTimeout(IMC_Transaction_s*)
{
    return IMC_OK;
}
int Action_RemoveTransaction(IMC_Transaction_s*)
{
    return IMC_OK;
}

using imc_action = int (*)(IMC_Transaction_s*);
using action_row = std::array<imc_action, IMC_EVENT_COUNT>;

constexpr action_row null_row()
{
    action_row row{};
    row.fill(Action_Null);
    return row;
}

constexpr std::array<action_row, IMC_STATE_COUNT> make_action_table()
{
    std::array<action_row, IMC_STATE_COUNT> t{};
    t.fill(null_row());
    t[STATE_Initial][Event_SendRequest] = Action_SendRequest;
    t[STATE_Initial][Event_ReceiveReuest] = Action_ProcessRequest;
    t[STATE_RequestReceived][Event_SendReply] = Action_SendReply;
    t[STATE_RequestReceived][Event_ReceiveReplyAck] = Action_MoveToCompleted;
    t[STATE_RequestReceived][Event_Tick] = Action_CheckReplyTimeout;
    t[STATE_RequestSent][Event_ReceiveReply] = Action_AcknowledgeReply;
    t[STATE_RequestSent][Event_Tick] = Action_CheckRetryTimeout;
    t[STATE_ReplySent][Event_ReceiveReuest] = Action_ResendReply;
    t[STATE_ReplySent][Event_ReceiveReplyAck] = Action_MoveToCompleted;
    t[STATE_ReplySent][Event_Tick] = Action_CheckReplyAckTimeout;
    t[STATE_Completed][Event_Tick] = Action_RemoveTransaction;
    return t;
}

constexpr std::array<action_row, IMC_STATE_COUNT> ACTION_TABLE = make_action_table();

imcEvent_t receive_event(uint8_t cls)
{
    switch (cls) {
    case CLASS_Request:
        return Event_ReceiveReuest;
    case CLASS_Reply:
        return Event_ReceiveReply;
    default:
        return Event_ReceiveReplyAck;
    }
}

// The transaction in use that a received message belongs to: same sequence,
// and Active for a reply, Passive for a request or a reply-ack.
IMC_Transaction_s* find_transaction(IMC_Stack_s& s, const IMC_MessageHeader_s& h)
{
    const imcType_t type = h.m_Class == CLASS_Reply ? TYPE_Active : TYPE_Passive;
    for (uint32_t i = 0; i < s.transaction_num; ++i) {
        IMC_Transaction_s& t = s.transactionPtr[i];
        if (t.in_use && t.m_Type == type && t.m_Header.m_SequenceCount == h.m_SequenceCount)
            return &t;
    }
    return nullptr;
}

void tick_transaction(IMC_Transaction_s& t, uint64_t now)
{
    const IMC_Stack_s& s = *t.m_Stack;
    t.m_Event = Event_Tick;
    IMC_Run_Action(&t);
    switch (t.m_State) {
    case STATE_RequestSent: {
        const uint64_t age = elapsed(now, t.req_send_time);
        const uint64_t limit = s.retry_Time + uint64_t{s.max_RetryCount} * s.retry_Time;
        if (age >= limit) {
            send_log(DRV_LOG_ERR,
                     "%s:%d:%s(): *************request resend timeout!request cmd is 0x%x "
                     "***************\n",
                     DRV_POS, command_of(t.m_command_buf));
            if (t.noreply_handler != nullptr)
                t.noreply_handler();
            release_transaction(t);
        } else if (age >= s.retry_Time) {
            send_log(DRV_LOG_ERR,
                     "%s:%d:%s(): *************request resend!request cmd is 0x%x ***************\n",
                     DRV_POS, command_of(t.m_command_buf));
            // The send time stays: the request goes out again on every tick
            // until the limit.
            Send_Packet(&t);
        }
        break;
    }
    case STATE_RequestReceived:
    case STATE_ReplySent: {
        const uint64_t since = t.m_State == STATE_RequestReceived ? t.req_recv_time : t.reply_send_time;
        if (elapsed(now, since) > s.max_wait_Time) {
            send_log(DRV_LOG_ERR, "%s:%d:%s(): #########max_wait_Time happen, transaction removed!\n",
                     DRV_POS);
            release_transaction(t);
        }
        break;
    }
    case STATE_Completed:
        release_transaction(t);
        break;
    default:
        break;
    }
}

}  // namespace

int Send_Packet(IMC_Transaction_s* t)
{
    if (t == nullptr)
        return IMC_ERR_ARGUMENTS;
    if (t->m_Stack == nullptr)
        return IMC_ERR_NO_STACK;
    IMC_Stack_s& s = *t->m_Stack;
    if (s.write == nullptr)
        return IMC_ERR_NO_LINK;
    if (t->m_command_buf == nullptr)
        return IMC_ERR_NO_MESSAGE;
    const uint32_t n = IMC_HEADER_LEN + message_length(t->m_command_buf);
    if (n > block_size(s))
        return IMC_ERR_NO_MESSAGE;  // every stored message fits its block: this is none
    uint8_t* frame = IMC_alloc_mem_pool_block(s.mempoolPtr);
    if (frame == nullptr) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): no more  mem pool for alloc, abort!\n", DRV_POS);
        return IMC_ERR_NO_MEMORY;
    }
    // The frame is limited by the package length and, so that it stays in
    // its block, by the block size.
    const uint32_t limit = std::min(s.max_package_length, block_size(s));
    const uint32_t frame_len = IMC_Encode_Frame(n, t->m_command_buf, frame, limit);
    int rc = IMC_ERR_NO_FIT;
    if (frame_len > 0) {
        const int written = s.write(private_data_of(s), frame, frame_len);
        rc = written >= 0 && static_cast<uint32_t>(written) == frame_len ? IMC_OK : IMC_ERR_SHORT_WRITE;
    }
    IMC_free_mem_pool_block(s.mempoolPtr, frame);
    return rc;
}

int IMC_Run_Action(IMC_Transaction_s* t)
{
    if (t == nullptr || t->m_State >= IMC_STATE_COUNT || t->m_Event >= IMC_EVENT_COUNT)
        return Action_Null(t);
    return ACTION_TABLE[t->m_State][t->m_Event](t);
}

int IMC_Header_Parse(const uint8_t* data, uint32_t len, IMC_MessageHeader_s* header)
{
    // Shorter than a header counts as missing input; a message shorter than
    // its header and length field say is refused even where "len not above
    // the length field" would let it pass, so nothing reads beyond len.
    if (data == nullptr || header == nullptr || len < IMC_HEADER_LEN) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): input error:data addr=0x%x len=%d header addr=0x%x\n",
                 DRV_POS, static_cast<unsigned>(reinterpret_cast<uintptr_t>(data)), static_cast<int>(len),
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(header)));
        return IMC_ERR_ARGUMENTS;
    }
    const uint8_t version = data[offsetof(IMC_WireHeader, version)];
    if (version != IMC_VERSION) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): invalid version:%d\n", DRV_POS, version);
        return IMC_ERR_VERSION;
    }
    const uint8_t cls = data[offsetof(IMC_WireHeader, msg_class)];
    if (cls > CLASS_ReplyACK) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): unkown class:%d \n ", DRV_POS, cls);
        return IMC_ERR_CLASS;
    }
    const uint16_t length = message_length(data);
    if (len < IMC_HEADER_LEN + length) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): len  is less than msg len\n ", DRV_POS);
        return IMC_ERR_LENGTH;
    }
    header->m_Version = version;
    header->m_Class = cls;
    header->m_SequenceCount = get_be16(data + offsetof(IMC_WireHeader, sequence));
    header->m_Length = length;
    return IMC_OK;
}

int IMC_Protocol_Init(IMC_Stack_Handle_s* handle)
{
    IMC_Stack_s* s = stack_of(handle);
    if (s == nullptr)
        return -IMC_ERR_ARGUMENTS;
    {
        const user_lock guard(s->transaction_lock, s->transaction_unlock, s->lock_arg);
        for (uint32_t i = 0; i < s->transaction_num; ++i) {
            s->transactionPtr[i] = IMC_Transaction_s{};
            s->transactionPtr[i].m_Stack = s;
        }
    }
    if (s->mempoolPtr != nullptr)
        IMC_init_mem_pool_free_list(s->mempoolPtr, s->mempoolPtr->mem_pool_array, s->mempoolPtr->mem_pool_size);
    return IMC_OK;
}

int IMC_Protocol_SendRequest(IMC_Stack_Handle_s* handle, const uint8_t* data, uint32_t len,
                             IMC_Reply_Handler reply_handler, IMC_NoReply_Handler noreply_handler)
{
    IMC_Stack_s* s = stack_of(handle);
    if (s == nullptr || data == nullptr || reply_handler == nullptr || noreply_handler == nullptr)
        return -IMC_ERR_ARGUMENTS;
    if (uint64_t{len} + IMC_HEADER_LEN > s->max_package_length)
        return -IMC_ERR_NO_MEMORY;
    // The request is kept in one pool block.
    if (uint64_t{len} + IMC_HEADER_LEN > block_size(*s))
        return -IMC_ERR_NO_FIT;

    const user_lock guard = tick_lock(*s);
    IMC_Transaction_s* t = take_transaction(*s, TYPE_Active);
    if (t == nullptr) {
        send_log(DRV_LOG_ERR,
                 "%s:%d:%s(): !!!!!!!!!!!!!!!!!!!!no more transaction mem for alloc, "
                 "abort!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n",
                 DRV_POS);
        return -IMC_ERR_NO_TRANSACTION;
    }
    uint8_t* buf = IMC_alloc_mem_pool_block(s->mempoolPtr);
    if (buf == nullptr) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): ****no more  mem pool for alloc, abort!****\n", DRV_POS);
        release_transaction(*t);
        return -IMC_ERR_NO_MEMORY;
    }
    const auto length = static_cast<uint16_t>(len);
    const uint16_t seq = next_sequence(*s);
    build_message(buf, CLASS_Request, seq, data, length);
    t->m_command_buf = buf;
    t->m_Header = {IMC_VERSION, CLASS_Request, seq, length};
    t->reply_handler = reply_handler;
    t->noreply_handler = noreply_handler;
    t->m_Event = Event_SendRequest;
    const int rc = IMC_Run_Action(t);
    if (rc == IMC_OK || rc == IMC_ERR_SHORT_WRITE)
        return IMC_OK;
    drop_if_initial(*t);
    return -rc;
}

int IMC_Protocol_SendReply(IMC_Transaction_s* t, const uint8_t* data, uint32_t len)
{
    if (t == nullptr || t->m_Stack == nullptr || (data == nullptr && len > 0))
        return -IMC_ERR_ARGUMENTS;
    IMC_Stack_s& s = *t->m_Stack;
    if (s.mempoolPtr == nullptr)
        return -IMC_ERR_NO_LINK;
    const user_lock guard = tick_lock(s);
    if (!t->in_use || t->m_State != STATE_RequestReceived)
        return -IMC_ERR_STATE;
    if (uint64_t{len} + IMC_HEADER_LEN > block_size(s))
        return -IMC_ERR_NO_FIT;
    uint8_t* buf = IMC_alloc_mem_pool_block(s.mempoolPtr);
    if (buf == nullptr) {
        send_log(DRV_LOG_ERR, "%s:%d:%s(): *****no more  mem pool for send reply, abort!****\n", DRV_POS);
        return -IMC_ERR_NO_MEMORY;
    }
    build_message(buf, CLASS_Reply, t->m_Header.m_SequenceCount, data, static_cast<uint16_t>(len));
    // The stored reply replaces the request; while the request's handler runs
    // (its payload points into the request) the request block is kept. A
    // second reply after a failed send replaces the first.
    if (t->m_in_handler && t->m_parked_buf == nullptr)
        t->m_parked_buf = t->m_command_buf;
    else
        IMC_free_mem_pool_block(s.mempoolPtr, t->m_command_buf);
    t->m_command_buf = buf;
    t->m_Event = Event_SendReply;
    return -IMC_Run_Action(t);
}

int IMC_Protocol_SendEvent(IMC_Stack_Handle_s* handle, uint32_t len, const uint8_t* data)
{
    IMC_Stack_s* s = stack_of(handle);
    if (s == nullptr || data == nullptr)
        return -IMC_ERR_ARGUMENTS;
    if (uint64_t{len} + IMC_HEADER_LEN > s->max_package_length)
        return -IMC_ERR_NO_MEMORY;
    const user_lock guard(s->event_lock, s->event_unlock, s->lock_arg);
    build_message(s->event_buff.data_buff, CLASS_Event, 0, data, static_cast<uint16_t>(len));
    const uint32_t frame_len = IMC_Encode_Frame(IMC_HEADER_LEN + len, s->event_buff.data_buff,
                                                s->event_buff.link_data_buff, s->max_package_length);
    if (frame_len == 0 || s->write == nullptr)
        return -IMC_ERR_SHORT_WRITE;
    const int written = s->write(private_data_of(*s), s->event_buff.link_data_buff, frame_len);
    return written >= 0 && static_cast<uint32_t>(written) == frame_len ? IMC_OK : -IMC_ERR_SHORT_WRITE;
}

int IMC_Protocol_Parse(IMC_Stack_Handle_s* handle, const uint8_t* message, uint32_t len)
{
    IMC_Stack_s* s = stack_of(handle);
    if (s == nullptr)
        return -IMC_ERR_ARGUMENTS;
    IMC_MessageHeader_s h{};
    const int hrc = IMC_Header_Parse(message, len, &h);
    if (hrc != IMC_OK)
        return -hrc;

    if (h.m_Class == CLASS_Event) {
        if (s->onEventReceivedFunctionPtr == nullptr)
            return IMC_OK;
        return s->onEventReceivedFunctionPtr(private_data_of(*s), message + IMC_HEADER_LEN, h.m_Length);
    }

    const user_lock guard = tick_lock(*s);
    IMC_Transaction_s* t = find_transaction(*s, h);
    if (t == nullptr) {
        if (h.m_Class != CLASS_Request) {
            send_log(DRV_LOG_ERR, "%s:%d:%s(): msg header info:class=%d seq=%d length=%d\n", DRV_POS,
                     h.m_Class, h.m_SequenceCount, h.m_Length);
            if (h.m_Class == CLASS_ReplyACK)
                send_log(DRV_LOG_ERR, "%s:%d:%s(): this is a reply ack\n", DRV_POS);
            return -IMC_ERR_NO_MATCH;
        }
        t = take_transaction(*s, TYPE_Passive);
        if (t == nullptr) {
            send_log(DRV_LOG_ERR, "%s:%d:%s(): unable to alloc transaction space\n", DRV_POS);
            return -IMC_ERR_NO_MEMORY;
        }
    }

    if (t->m_State == STATE_ReplySent && h.m_Class == CLASS_Request) {
        // The peer repeated the request: answer from the stored reply.
        t->m_Event = Event_ReceiveReuest;
        return -IMC_Run_Action(t);
    }
    t->m_Header = h;
    t->m_Event = receive_event(h.m_Class);

    // The message is kept in one pool block; a longer one is refused.
    const uint32_t n = IMC_HEADER_LEN + h.m_Length;
    if (n > block_size(*s)) {
        drop_if_initial(*t);
        return -IMC_ERR_NO_FIT;
    }
    if (t->m_command_buf == nullptr) {
        t->m_command_buf = IMC_alloc_mem_pool_block(s->mempoolPtr);
        if (t->m_command_buf == nullptr) {
            send_log(DRV_LOG_ERR, "%s:%d:%s(): no more  mem pool for parse alloc, abort!\n", DRV_POS);
            drop_if_initial(*t);
            return -IMC_ERR_NO_MEMORY;
        }
    }
    std::memcpy(t->m_command_buf, message, n);
    const int rc = IMC_Run_Action(t);
    drop_if_initial(*t);
    return -rc;
}

int IMC_Protocol_TimeTick(IMC_Stack_Handle_s* handle)
{
    IMC_Stack_s* s = stack_of(handle);
    if (s == nullptr)
        return -IMC_ERR_ARGUMENTS;
    uint64_t now = 0;
    if (!read_clock(now, __func__, __LINE__))
        return -IMC_ERR_CLOCK;
    const user_lock guard = tick_lock(*s);
    if (now >= s->last_tick_time && now - s->last_tick_time < s->retry_Time)
        return IMC_OK;
    for (uint32_t i = 0; i < s->transaction_num; ++i) {
        if (s->transactionPtr[i].in_use)
            tick_transaction(s->transactionPtr[i], now);
    }
    s->last_tick_time = now;
    return IMC_OK;
}
