// The screen model: the three display clients (main, sub, IPC screen), their
// outputs on the joint desktop, the 3x3 placement grid, keyboard focus and
// cursor ownership, the multi-screen modes and the IPC window with its
// cut-out rectangles.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/tactord_types.h"

// Where the main screen stands relative to the sub screen; also a move
// direction.
enum _REL_POSTION : int {
    POS_NONE = 0,
    LEFT_OF = 1,
    RIGHT_OF = 2,
    ABOVE = 3,
    BELOW = 4,
};

enum IPCWIN_OP : int {
    OP_IPC_WIN_DEL = 0,
    OP_IPC_WIN_ADD = 1,
    OP_IPC_WIN_CLR = 2,
};

inline constexpr int GRID_CELLS = 9;

// Wire records (they travel inside the 64-byte control record).

// Note the order: both x values first. (x, y) is inside when x1 <= x < x2
// and y1 <= y < y2.
struct _RECT_BOX {
    int32_t x1;
    int32_t x2;
    int32_t y1;
    int32_t y2;
};
using RECT_BOX = _RECT_BOX;
static_assert(sizeof(RECT_BOX) == 16);
static_assert(offsetof(RECT_BOX, x1) == 0);
static_assert(offsetof(RECT_BOX, x2) == 4);
static_assert(offsetof(RECT_BOX, y1) == 8);
static_assert(offsetof(RECT_BOX, y2) == 12);

// Argument of a mode change.
struct _MultiModeInfo {
    int32_t mode;                                  // bit set of _MultiMode
    std::array<int32_t, GRID_CELLS> monitor_pos;  // the placement grid
    RECT_BOX ipc_window;
};
using MultiModeInfo = _MultiModeInfo;
static_assert(sizeof(MultiModeInfo) == 56);
static_assert(offsetof(MultiModeInfo, mode) == 0);
static_assert(offsetof(MultiModeInfo, monitor_pos) == 4);
static_assert(offsetof(MultiModeInfo, ipc_window) == 40);

struct _IpcWinInfo {
    int32_t isIpcWin;  // 1 = open the IPC window, 0 = close it
    int32_t index;     // host screen
    RECT_BOX ipcWindow;
};
using IpcWinInfo = _IpcWinInfo;
static_assert(sizeof(IpcWinInfo) == 24);
static_assert(offsetof(IpcWinInfo, isIpcWin) == 0);
static_assert(offsetof(IpcWinInfo, index) == 4);
static_assert(offsetof(IpcWinInfo, ipcWindow) == 8);

// In-memory model.

// Cut-out rectangles of the IPC window: heap nodes after a head node whose
// own box stays zero.
struct _RECT_LIST {
    RECT_BOX win{};
    _RECT_LIST* next = nullptr;
};
using RECT_LIST = _RECT_LIST;

struct _IPC_RECTS {
    int index = 0;      // screen hosting the IPC window
    RECT_BOX win{};     // the window, in that screen's coordinates
    RECT_LIST rm_rect;  // head of the cut-out list
};
using IPC_RECTS = _IPC_RECTS;

struct _OutputDev {
    int connect_state = 0;  // 1 = present
    std::array<char, 16> name{};
    int x = 0;  // origin in the joint desktop
    int y = 0;
    int width = 0;
    int height = 0;
};
using OutputDev = _OutputDev;

struct _ClientInfo {
    int index = 0;
    int fd = 0;
    // 1 = has the keyboard focus. Read by the scanner service's reader
    // threads, which route scans to the focused screen.
    std::atomic<int> focus{0};
    // 1 = shows the mouse cursor. Read by the cursor timer thread while the
    // main thread moves the cursor; a stale read only delays one decision.
    std::atomic<int> cursor{0};
    OutputDev* output = nullptr;  // null = no output
};
using ClientInfo = _ClientInfo;

// Per-screen lock-key state (Caps, Num, Scroll).
struct _LockKeyState {
    int key_code = 0;
    int led = 0;
    int lock_state = 0;
    int key_down = 0;
};
using LockKeyStat = _LockKeyState;

// One screen as seen by input.
struct _ScrInfo {
    int index = 0;
    int x = 0;  // pointer position
    int y = 0;
    int width = 0;
    int height = 0;
    int mode = 0;  // _MultiMode bits in force on this screen
    int syn_index = 0;
    IPC_RECTS ipc;
    std::array<int, GRID_CELLS> postion{};  // cell = client + 1, 0 = empty
    std::array<int, SCREEN_COUNT> screenDeriction{};
    std::array<ClientInfo, SCREEN_COUNT> client{};
    std::array<LockKeyStat, SCREEN_COUNT> lockKey{};
};
using ScrInfo = _ScrInfo;

// screen_info in every mode but MODE_DOUBLE_PLAYER, where double_screen[index]
// serves each player. In double-player mode an index outside 0..2 gives null.
ScrInfo* get_screen_info(int index);
// The base mode ORed with the IPC bits.
int get_current_multimode();
// &output_devices[index], null for index > 2.
OutputDev* get_output_info(unsigned index);
// First client whose cursor is 1, else 3.
int get_cursor_client(ScrInfo* scr);
// The client next to client in the grid in direction 1..4 (left, right, up,
// down); -1 when client is not in the grid (or the neighbour cell is empty),
// -2 at the grid's end or for a bad direction. Left and right wrap from one
// row into the next: the ends tested are those of the whole grid.
int get_next_client(ScrInfo* scr, unsigned client, int direction);
// Where the main screen stands relative to the sub screen in grid.
int parse_position(const int* grid);
// 1 when (x, y) is inside the IPC window and inside none of its cut-outs.
int is_in_ipc_window(ScrInfo* scr, int x, int y);
// Largest output width or height the daemon takes from a client or a peer.
inline constexpr int OUTPUT_SIZE_MAX = 32767;
// Both sizes within 1..OUTPUT_SIZE_MAX.
bool output_size_ok(int64_t width, int64_t height);
// Output 2 becomes connected with that size: 0, or -1 (logged, old size
// kept) for a size outside 1..32767.
int set_ipc_window_size(unsigned w, unsigned h);

// Tells the cursor client of get_screen_info(index) to show (1) or hide (0)
// the cursor: send_event's result.
int cursor_state_change(int index, int state);
// Move the cursor or the keyboard focus from one client to another: 1, or 0
// when refused.
int screen_change_cursor(ScrInfo* scr, int from, int to);
int screen_change_focus(ScrInfo* scr, int from, int to);
void hide_extern_sub_screen_cursor();

// Control-socket entry points.
int get_ipc_win_info(IpcWinInfo* info);
int handle_ipcwindow_set(IpcWinInfo* info);
int handle_ipc_win_modify(int op, RECT_BOX* box, int index);
int handle_multimode_set(int index, MultiModeInfo* info);

// Lays outputs 0 and 1 out on the joint desktop.
void set_screen_mode(int clone, int pos);
// Start-up: framebuffer size, outputs, base mode, client 0's focus and cursor.
void output_info_init();
void dump_output_info();
