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

// Spans of a touchscreen that needs calibration (its raw values while the
// seat is calibrating are scaled to 1920 x 1080).
inline constexpr int CALI_SPAN_X = 1919;
inline constexpr int CALI_SPAN_Y = 1079;

// The 7-parameter calibration transform of a raw point: param when its p6 is
// set, else the seat's last computed row, else the default transform
// (logged). -1 for a null argument, else 0.
int coordinate_convert(int seat, int x, int y, const int* param, int* out_x, int* out_y);

// Called for every event read (dev null for events a control client
// injects). A seat that is calibrating has the raw point captured first; a
// touchscreen delivering raw values goes through the raw-report assembler;
// everything else goes to the router.
void ProcessEvdevEvent(_InputDev* dev, tactord::input_event* ev);
// The router: picks the screen and the client for ev by its type, applies the
// lock keys, the sensitivity, the screen crossing, the touch scaling and the
// touch lock, and hands the result to the touch tracker.
void ProcessEvdevEvent_ARM(_InputDev* dev, tactord::input_event* ev);

// Per-type handling of the router. 0 = go on, -1 (non-zero) = drop.
int handle_key_event(_ScrInfo* scr, tactord::input_event* ev);
int handle_rel_event(_ScrInfo* scr, tactord::input_event* ev);
int handle_abs_event(_InputDev* dev, tactord::input_event* ev);
// A virtual-desktop pointer event becomes an EV_ABS event relative to the
// output it lies on; returns that client (0 or 1).
int handle_vnc_event(tactord::input_event* ev);
// A touch of a locked screen goes out with its type raised by 34.
void TouchScreenLockSendEventToOut(_InputDev* dev, int client, _ScrInfo* scr, tactord::input_event* ev);

// A device goes away: its touch-tracking record becomes free.
void OnDevDelete(_InputDev* dev);

inline constexpr int DOWN_SEND_INFO_MAX = 5;
inline constexpr int DOWN_SEND_EVENT_BUF = 20;
inline constexpr int DOWN_SEND_NONE = -100;  // no slot / tracking id / client

// Touch-tracking record, one per touchscreen.
struct _DownSendInfo_ {
    // The touchscreen owning the record. Written by the event thread, read by
    // the hot-plug thread when a device goes away.
    std::atomic<_InputDev*> dev{nullptr};
    int index = 0;                // client receiving this contact
    int ndownslotid = 0;          // slot of the first contact, -100 = none
    int ndowntrackingid = 0;      // tracking id of the first contact, -100 = none
    uint8_t bDownSend = 0;        // a touch-down has been seen
    uint8_t bUpSend = 0;          // a touch-up has been seen
    uint8_t bsync = 0;            // an EV_SYN since the last key event
    int x = 0;                    // last position of the first report
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

// The touchscreen's record (taken on first use), or null when all five are
// held by live touchscreens.
DownSendInfo* GetDownSendInfo(_InputDev* dev);
void ResetDownSendInfo(DownSendInfo* info);
// Delivers ev to client t after the close filter; a touchscreen's contact is
// held until its first report is complete and then kept on the client where
// it went down, reduced to slots 0 and 1 (one slot for the IPC screen).
// Returns 0.
int sync_down_up_to_one_index_send(_InputDev* dev, int t, tactord::input_event* ev);
int ScreenMutexSend(DownSendInfo* info, int client, tactord::input_event* ev);
// 1 when the touchscreen is switched off and ev is swallowed (a double tap
// sends the wake-up key 199 to the main client).
int IsTouchScreenCloseFilter(_InputDev* dev, tactord::input_event* ev);
// Mouse motion and touches entering or leaving the IPC window: 1 when ev was
// converted for the IPC screen, 0 when not concerned, -1 when the cursor move
// was refused.
int ipc_window_filter(_ScrInfo* scr, tactord::input_event* ev);
int handle_ipc_window_touch_event(_InputDev* dev, tactord::input_event* ev);

// Raw reports of a touchscreen that needs software calibration: held until
// their EV_SYN, converted with the seat's parameters and passed to the router.
void ts_data_parse_func_mode(_InputDev* dev, tactord::input_event* ev);
// Seat calibrating: the raw ABS_X/ABS_Y become the current target's point.
void ts_data_parse_cali_mode(_InputDev* dev, tactord::input_event* ev);
