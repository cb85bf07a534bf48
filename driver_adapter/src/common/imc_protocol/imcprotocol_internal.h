// The IMC stack's records and the pieces of its state machine.
#pragma once

#include <cstdint>

#include "common/imc_protocol/imcprotocol.h"
#include "common/imc_protocol/mem_pool.h"

// Every field is guarded by the stack's tick lock; in_use is also written
// under the transaction lock when the entry is taken or released.
struct IMC_Transaction_s {
    bool in_use;
    uint64_t req_send_time;  // ms
    uint64_t req_recv_time;
    uint64_t reply_send_time;
    uint8_t* m_command_buf;  // pool block: the message to send or received
    // The request, kept while its handler runs after the handler replied.
    uint8_t* m_parked_buf;
    bool m_in_handler;
    imcType_t m_Type;
    imcState_t m_State;
    imcEvent_t m_Event;
    IMC_MessageHeader_s m_Header;
    IMC_Reply_Handler reply_handler;
    IMC_NoReply_Handler noreply_handler;
    IMC_Stack_s* m_Stack;
};

struct IMC_Event_Buff_s {
    uint8_t* data_buff;       // the message, max_package_length bytes
    uint8_t* link_data_buff;  // its frame, max_package_length bytes
};

struct IMC_Stack_s {
    IMC_Write_Func write;
    IMC_Event_Handler onEventReceivedFunctionPtr;
    IMC_Request_Handler onRequestReceivedFunctionPtr;
    IMC_Lock_Func transaction_lock;  // guards taking and releasing transactions
    IMC_Lock_Func transaction_unlock;
    IMC_Transaction_s* transactionPtr;
    mem_pool_s* mempoolPtr;
    IMC_Lock_Func event_lock;  // guards event_buff
    IMC_Lock_Func event_unlock;
    IMC_Event_Buff_s event_buff;
    uint32_t retry_Time;  // ms
    uint32_t max_RetryCount;
    uint32_t max_wait_Time;  // ms
    IMC_Lock_Func sequence_lock;  // guards my_sequence
    IMC_Lock_Func sequence_unlock;
    uint16_t my_sequence;
    uint64_t last_tick_time;  // ms; guarded by the tick lock
    uint32_t transaction_num;
    uint32_t max_package_length;
    IMC_Lock_Func tick_lock;  // guards the transactions' states and all parsing and ticking
    IMC_Lock_Func tick_unlock;
    void* lock_arg;
    IMC_Stack_Handle_s* stack_handle;
};

// Frames and writes the transaction's message: 0, or 27, 21, 11, 20, 12, 19
// (does not fit), 18 (not written whole).
int Send_Packet(IMC_Transaction_s* transaction);

// The action of the state table for the transaction's state and event: its
// code, 0 for success.
int IMC_Run_Action(IMC_Transaction_s* transaction);
