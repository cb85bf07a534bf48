// The event pipeline's entry (every event read from an input device) and the
// pipeline settings the control socket changes.
#pragma once

#include <sys/time.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "common/tactord_types.h"

struct _InputDev;
struct _ScrInfo;

// Mouse sensitivity level 1..10 (default 5); level n scales relative motion
// by g_MouseSensitivityValueMap[n - 1].
extern int g_MouseSensitivityValue;
extern const std::array<float, 10> g_MouseSensitivityValueMap;

// Coordinate maximum of the board touchscreen in use (4095 or 1023).
extern int ts_num_x;
// 1 once the panel's controller has been identified.
extern int PID_flag;

// Touchscreen switch: 0 the board's own panel, 1 a USB touchscreen.
enum _TouchScreenIndex : int {
    TOUCHSCREEN_MAIN = 0,
    TOUCHSCREEN_SUB = 1,
};
struct TouchScreenInfo {
    int nOpen;     // 1 = switched on
    timeval time;  // last touch-up while switched off
};
extern std::array<TouchScreenInfo, 2> g_TouchScreeenStatus;
// Switches touchscreen index on (open 1) or off; an index outside the table
// is logged and ignored.
void ProcessSwitchTouchScreen(int index, int open);

// First client 0, 1, 2 with the keyboard focus, else 3.
int get_focus_client(_ScrInfo* scr);
int GetFocusScreen();

// The 7-parameter calibration transform of a raw point: param when its p6 is
// set, else the seat's last computed row, else the default transform
// (logged). -1 for a null argument, else 0.
int coordinate_convert(int seat, int x, int y, const int* param, int* out_x, int* out_y);

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
