// The event pipeline's entry: every event read from an input device.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "common/tactord_types.h"

struct _InputDev;

// Called for every event read. Picks the device's path through the pipeline
// from its seat's calibration record.
void ProcessEvdevEvent(_InputDev* dev, tactord::input_event* ev);

// A device goes away: its touch-tracking record becomes free.
void OnDevDelete(_InputDev* dev);

inline constexpr int DOWN_SEND_INFO_MAX = 5;
inline constexpr int DOWN_SEND_EVENT_BUF = 20;

// Touch-tracking record, one per touchscreen.
struct _DownSendInfo_ {
    _InputDev* dev = nullptr;     // the touchscreen owning the record
    int index = 0;                // client receiving this contact
    int ndownslotid = 0;          // slot of the first contact, -100 = none
    int ndowntrackingid = 0;      // tracking id of the first contact, -100 = none
    uint8_t bDownSend = 0;        // a touch-down has been seen
    uint8_t bUpSend = 0;          // a touch-up has been seen
    uint8_t bsync = 0;            // an EV_SYN since the last key event
    int x = 0;
    int y = 0;
    int ncurrentslotid = 0;       // -100 = none
    int ncurrenttrackingid = 0;   // -100 = none
    std::array<tactord::input_event, DOWN_SEND_EVENT_BUF> m_eventBuf{};
    int nCount = 0;               // events in m_eventBuf
    // The record belongs to a live device. Cleared by the hot-plug thread on
    // removal, set by the event thread.
    std::atomic<uint8_t> bUsed{0};
    int bCanSend = 0;             // -1 after reset
};
using DownSendInfo = _DownSendInfo_;

extern std::array<DownSendInfo, DOWN_SEND_INFO_MAX> downSendInfoArray;
extern std::atomic<int> downSendInfoDevCount;
