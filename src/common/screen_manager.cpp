#include "common/screen_manager.h"

#include <cstring>
#include <new>

#include "arm/screen_device_manager.h"
#include "common/OrvelClient.h"
#include "common/cursor_timer.h"
#include "common/inputdevice_manager.h"
#include "common/keyboard_manager.h"
#include "common/log.h"
#include "common/screen_manager_internal.h"
#include "common/send_event.h"

std::array<OutputDev, SCREEN_COUNT> output_devices{};
ScrInfo screen_info;
std::array<ScrInfo, SCREEN_COUNT> double_screen;
std::atomic<int> current_mode{0};
int current_pos = POS_NONE;
std::atomic<int> gs_ipc_mode{0};
int gs_ipc_window_index = 0;
int gs_orvel_cursor_flag = 0;

namespace {

// The sub screen's fixed size, also used as the offsets of the layouts.
constexpr int SUB_WIDTH = 1920;
constexpr int SUB_HEIGHT = 1080;
constexpr int NOBODY = 3;  // get_cursor_client: no client has the cursor
// A client may cut at most this many rectangles out of the IPC window: the
// list is walked for every touch in the window, and a client flooding
// additions must not grow it without end.
constexpr int IPC_CUTOUT_MAX = 64;

int base_mode()
{
    return current_mode.load(std::memory_order_relaxed);
}

int ipc_mode()
{
    return gs_ipc_mode.load(std::memory_order_relaxed);
}

bool client_ok(int client)
{
    return client >= 0 && client < SCREEN_COUNT;
}

// The IPC window lives on a local screen: main or sub. Host 2 would make the
// remote screen host itself, and its touches would go out as raw records on
// the agent's link.
bool host_ok(int index)
{
    return index == MAIN_SCREEN || index == SUB_SCREEN;
}

// A private control event (zero time stamp, value 0) to one client.
int send_private(int client, uint16_t type, uint16_t code)
{
    tactord::input_event ev{0, 0, type, code, 0};
    return send_event(client, &ev);
}

void set_client(ClientInfo& c, int focus, int cursor, OutputDev* output)
{
    c.focus = focus;
    c.cursor.store(cursor, std::memory_order_relaxed);
    c.output = output;
}

// The screen that hosts the open IPC window: screen 0's model, then screen
// 1's; null when neither has MODE_IPC_WINDOW.
ScrInfo* ipc_window_screen()
{
    for (int i = 0; i < 2; ++i) {
        ScrInfo* scr = get_screen_info(i);
        if (scr != nullptr && (scr->mode & MODE_IPC_WINDOW) != 0)
            return scr;
    }
    return nullptr;
}

bool same_box(const RECT_BOX& a, const RECT_BOX& b)
{
    return a.x1 == b.x1 && a.x2 == b.x2 && a.y1 == b.y1 && a.y2 == b.y2;
}

bool in_box(const RECT_BOX& b, int x, int y)
{
    return b.x1 <= x && x < b.x2 && b.y1 <= y && y < b.y2;
}

void free_cutouts(RECT_LIST& head)
{
    RECT_LIST* node = head.next;
    head.next = nullptr;
    while (node != nullptr) {
        RECT_LIST* next = node->next;
        delete node;
        node = next;
    }
}

void reset_screen(ScrInfo& scr)
{
    free_cutouts(scr.ipc.rm_rect);
    scr.index = scr.x = scr.y = scr.width = scr.height = scr.mode = scr.syn_index = 0;
    scr.ipc.index = 0;
    scr.ipc.win = {};
    scr.postion = {};
    scr.screenDeriction = {};
    for (ClientInfo& c : scr.client) {
        c.index = c.fd = 0;
        set_client(c, 0, 0, nullptr);
    }
    scr.lockKey = {};
}

void set_name(OutputDev& out, const char* name)
{
    out.name = {};
    std::strncpy(out.name.data(), name, out.name.size() - 1);
}

void set_up_player(ScrInfo& scr, int index)
{
    OutputDev& out = output_devices[index];
    scr.index = index;
    scr.x = scr.y = 100;
    scr.width = out.width;
    scr.height = out.height;
    scr.mode = MODE_DOUBLE_PLAYER;
    ClientInfo& c = scr.client[index];
    c.index = index;
    set_client(c, 1, 1, &out);
}

void set_extern_mode(const MultiModeInfo& info)
{
    current_pos = parse_position(info.monitor_pos.data());
    screen_info.postion = info.monitor_pos;
    TLOG(LEVEL_DEBUG, "==MODE_EXTERN set,position is %d==\n", current_pos);
    set_screen_mode(0, current_pos);
    proc_get_screen_info(&screen_info, &output_devices[0]);
    const int owner = get_cursor_client(&screen_info);
    if (owner < NOBODY) {
        hide_extern_sub_screen_cursor();
        screen_change_cursor(&screen_info, owner, MAIN_SCREEN);
    }
    screen_info.mode = ipc_mode() | base_mode();
    set_client(screen_info.client[0], 1, 1, &output_devices[0]);
    screen_info.client[1].index = 1;
    set_client(screen_info.client[1], 0, 0, &output_devices[1]);
    send_key_lock_state(MAIN_SCREEN);
    dump_output_info();
}

void set_clone_mode()
{
    current_mode.store(MODE_CLONE, std::memory_order_relaxed);
    set_screen_mode(1, POS_NONE);
    screen_info.mode = ipc_mode() | MODE_CLONE;
    proc_get_screen_info(&screen_info, &output_devices[0]);
    const int owner = get_cursor_client(&screen_info);
    if (owner == SUB_SCREEN || owner == IPC_SCREEN)
        screen_change_cursor(&screen_info, owner, MAIN_SCREEN);
    set_client(screen_info.client[0], 1, 1, &output_devices[0]);
    ClientInfo& sub = screen_info.client[1];
    set_client(sub, 0, 0, sub.output);
    send_key_lock_state(MAIN_SCREEN);
}

void set_double_player_mode()
{
    if ((base_mode() & MODE_DOUBLE_PLAYER) != 0) {
        TLOG(LEVEL_WARN, "Current mode is already MODE_DOUBLE_PLAYER\n");
        return;
    }
    set_screen_mode(0, LEFT_OF);
    proc_get_screen_info(&screen_info, &output_devices[0]);
    current_mode.store(MODE_DOUBLE_PLAYER, std::memory_order_relaxed);
    TLOG(LEVEL_DEBUG, "==MODE_DOUBLE_PLAYER set==\n");
    set_up_player(double_screen[0], 0);
    set_up_player(double_screen[1], 1);
    // gs_ipc_window_index was checked against the table when the window opened.
    if ((ipc_mode() & MODE_IPC_WINDOW) != 0)
        double_screen[gs_ipc_window_index].mode |= MODE_IPC_WINDOW;
}

void set_ipc_extern(int index, const MultiModeInfo& info)
{
    TLOG(LEVEL_DEBUG, "==MODE_IPC_EXTERN set==\n");
    ScrInfo* scr = (base_mode() & MODE_DOUBLE_PLAYER) != 0 ? &double_screen[0] : get_screen_info(index);
    scr->mode |= MODE_IPC_EXTERN;
    scr->postion = info.monitor_pos;
    scr->client[IPC_SCREEN].output = &output_devices[IPC_SCREEN];
    getIPCWinSize(getIpcHanle());
    gs_ipc_mode.fetch_or(MODE_IPC_EXTERN, std::memory_order_relaxed);
}

// The index is the client's scr_index, any value: outside double-player mode
// get_screen_info ignores it and screen_change_cursor refuses one outside
// 0..2; in double-player mode an index naming no player screen closes
// nothing (logged), and the mode set still returns 0.
void close_ipc_extern(int index)
{
    ScrInfo* scr = get_screen_info(index);
    if (scr == nullptr) {
        TLOG(LEVEL_ERROR, "Check client is not exist,from:%d;to:%d\n", IPC_SCREEN, index);
        return;
    }
    scr->mode &= ~MODE_IPC_EXTERN;
    if (get_cursor_client(scr) == IPC_SCREEN) {
        screen_change_cursor(scr, IPC_SCREEN, index);
        gs_orvel_cursor_flag = 0;
    }
    gs_ipc_mode.fetch_and(~MODE_IPC_EXTERN, std::memory_order_relaxed);
    TLOG(LEVEL_DEBUG, "==MODE_IPC_EXTERN close==\n");
}

}  // namespace

ScrInfo* get_screen_info(int index)
{
    if ((base_mode() & MODE_DOUBLE_PLAYER) == 0)
        return &screen_info;
    return client_ok(index) ? &double_screen[index] : nullptr;
}

int get_current_multimode()
{
    return ipc_mode() | base_mode();
}

OutputDev* get_output_info(unsigned index)
{
    return index < output_devices.size() ? &output_devices[index] : nullptr;
}

int get_cursor_client(ScrInfo* scr)
{
    if (scr == nullptr)
        return NOBODY;
    for (int i = 0; i < SCREEN_COUNT; ++i) {
        if (scr->client[i].cursor.load(std::memory_order_relaxed) == 1)
            return i;
    }
    return NOBODY;
}

int get_next_client(ScrInfo* scr, unsigned client, int direction)
{
    int cell = -1;
    for (int i = 0; scr != nullptr && i < GRID_CELLS; ++i) {
        if (static_cast<unsigned>(scr->postion[i]) == client + 1) {
            cell = i;
            break;
        }
    }
    if (cell < 0) {
        TLOG(LEVEL_ERROR, "position error, can't find client %d\n", static_cast<int>(client));
        return -1;
    }
    int next = 0;
    switch (direction) {
    case LEFT_OF: next = cell - 1; break;  // from cell 3 this reads cell 2: kept
    case RIGHT_OF: next = cell + 1; break;
    case ABOVE: next = cell - 3; break;
    case BELOW: next = cell + 3; break;
    default:
        TLOG(LEVEL_ERROR, "direction error, %d\n", direction);
        return -2;
    }
    if (next < 0 || next >= GRID_CELLS)
        return -2;
    // The grid comes from a client: a cell holding anything but 0..3 counts
    // as empty, so the result always indexes the client tables or is -1.
    const int value = scr->postion[next];
    return value >= 1 && value <= SCREEN_COUNT ? value - 1 : -1;
}

int parse_position(const int* grid)
{
    if (grid == nullptr)
        return POS_NONE;
    int m = 0;
    int s = 0;
    for (int i = 0; i < GRID_CELLS; ++i) {
        if (grid[i] == 1)
            m = i;
        else if (grid[i] == 2)
            s = i;
    }
    switch (m) {
    case 1: return ABOVE;
    case 3: return LEFT_OF;
    case 5: return RIGHT_OF;
    case 7: return BELOW;
    case 4:
        switch (s) {
        case 1: return BELOW;
        case 3: return RIGHT_OF;
        case 5: return LEFT_OF;
        case 7: return ABOVE;
        default: return POS_NONE;
        }
    default: return POS_NONE;  // 0, 2, 6, 8
    }
}

int is_in_ipc_window(ScrInfo* scr, int x, int y)
{
    if (scr == nullptr || !in_box(scr->ipc.win, x, y))
        return 0;
    for (const RECT_LIST* node = &scr->ipc.rm_rect; node != nullptr; node = node->next) {
        if (in_box(node->win, x, y))
            return 0;
    }
    return 1;
}

bool output_size_ok(int64_t width, int64_t height)
{
    return width >= 1 && width <= OUTPUT_SIZE_MAX && height >= 1 && height <= OUTPUT_SIZE_MAX;
}

int set_ipc_window_size(unsigned w, unsigned h)
{
    // The size comes from the agent or from a client's window box: outside
    // 1..32767 (0x80000000 would overflow width - 1 wherever the pointer is
    // clamped) it is refused and the old geometry stays.
    if (!output_size_ok(w, h)) {
        TLOG(LEVEL_ERROR, "ipc win size %u x %u refused\n", w, h);
        return -1;
    }
    OutputDev& out = output_devices[IPC_SCREEN];
    out.connect_state = 1;
    out.width = static_cast<int>(w);
    out.height = static_cast<int>(h);
    return 0;
}

int cursor_state_change(int index, int state)
{
    ScrInfo* scr = get_screen_info(index);
    const int owner = get_cursor_client(scr);
    const int ret = send_private(owner, EV_PRIV_CURSOR_SHOW, static_cast<uint16_t>(state));
    TLOG(LEVEL_DEBUG, "Cursor hide state change:%d-->%d ret=%d\n", owner, state, ret);
    return ret;
}

int screen_change_cursor(ScrInfo* scr, int from, int to)
{
    // Both ends index the client tables: an index outside them is refused
    // like a client that is not there.
    if (scr == nullptr || !client_ok(from) || !client_ok(to) || gs_clients[to].load() < 1 ||
        scr->client[to].output == nullptr) {
        TLOG(LEVEL_ERROR, "Check client is not exist,from:%d;to:%d\n", from, to);
        return 0;
    }
    TLOG(LEVEL_DEBUG, "----- screen change:%d--->%d -----\n", from, to);
    scr->client[from].cursor.store(0, std::memory_order_relaxed);
    scr->client[to].cursor.store(1, std::memory_order_relaxed);
    send_private(from, EV_PRIV_CURSOR_MOVED, 1);
    set_cursor_move_state(static_cast<unsigned>(from), 1);
    send_private(to, EV_PRIV_CURSOR_MOVED, 0);
    set_cursor_move_state(static_cast<unsigned>(to), 0);
    return 1;
}

int screen_change_focus(ScrInfo* scr, int from, int to)
{
    if (scr == nullptr || !client_ok(from) || !client_ok(to) || gs_clients[to].load() < 1) {
        TLOG(LEVEL_ERROR, "Check client is not exist,from:%d;to:%d\n", from, to);
        return 0;
    }
    TLOG(LEVEL_DEBUG, "++++++ focus change:%d--->%d ++++++\n", from, to);
    scr->client[from].focus = 0;
    scr->client[to].focus = 1;
    send_private(from, EV_PRIV_FOCUS_MOVED, 1);
    send_private(to, EV_PRIV_FOCUS_MOVED, 0);
    send_key_lock_state(to);
    return 1;
}

void hide_extern_sub_screen_cursor()
{
    send_private(SUB_SCREEN, EV_PRIV_CURSOR_MOVED, 1);
    set_cursor_move_state(SUB_SCREEN, 1);
    const int ret = send_private(SUB_SCREEN, EV_PRIV_CURSOR_SHOW, 0);
    TLOG(LEVEL_DEBUG, "Cursor hide state change:%d-->%d ret=%d\n", SUB_SCREEN, 0, ret);
}

int get_ipc_win_info(IpcWinInfo* info)
{
    if (info == nullptr) {
        TLOG(LEVEL_ERROR, "Info is null,para error\n");
        return -1;
    }
    *info = {};
    if ((ipc_mode() & MODE_IPC_WINDOW) == 0) {
        info->isIpcWin = 0;
        return 0;
    }
    const ScrInfo* scr = ipc_window_screen();
    if (scr == nullptr) {
        TLOG(LEVEL_ERROR, "Error,IPC window not exist\n");
        return -1;
    }
    info->index = scr->ipc.index;
    info->isIpcWin = 1;
    info->ipcWindow = scr->ipc.win;
    return 0;
}

int handle_ipcwindow_set(IpcWinInfo* info)
{
    if (info == nullptr)
        return -1;
    if (info->isIpcWin == 0) {
        ScrInfo* scr = ipc_window_screen();
        if (scr == nullptr) {
            TLOG(LEVEL_ERROR, "Error,MODE_IPC_WINDOW not exist\n");
            return -1;
        }
        scr->mode &= ~MODE_IPC_WINDOW;
        if (get_cursor_client(scr) == IPC_SCREEN)
            screen_change_cursor(scr, IPC_SCREEN, scr->ipc.index);
        gs_ipc_mode.fetch_and(~MODE_IPC_WINDOW, std::memory_order_relaxed);
        TLOG(LEVEL_DEBUG, "==MODE_IPC_WINDOW close==\n");
        if ((ipc_mode() & MODE_IPC_EXTERN) != 0)
            getIPCWinSize(getIpcHanle());
        return 0;
    }
    // The host index is kept and later indexes the screen and client
    // tables: a host other than 0 and 1 is refused as a bad argument,
    // nothing changed.
    if (!host_ok(info->index)) {
        TLOG(LEVEL_ERROR, "Info is null,para error\n");
        return -1;
    }
    // The box is refused as a whole, old geometry kept, unless its corners
    // lie within +-32767 and it spans 1..32767 both ways: an inverted box
    // would give a negative width, a huge one an overflow wherever its
    // corners are subtracted from a position.
    const RECT_BOX& box = info->ipcWindow;
    const auto corner_ok = [](int32_t v) { return v >= -OUTPUT_SIZE_MAX && v <= OUTPUT_SIZE_MAX; };
    if (!corner_ok(box.x1) || !corner_ok(box.x2) || !corner_ok(box.y1) || !corner_ok(box.y2) ||
        !output_size_ok(static_cast<int64_t>(box.x2) - box.x1, static_cast<int64_t>(box.y2) - box.y1)) {
        TLOG(LEVEL_ERROR, "ipc win (%d,%d),(%d,%d) refused\n", box.x1, box.y1, box.x2, box.y2);
        return -1;
    }
    TLOG(LEVEL_DEBUG, "==MODE_IPC_WINDOW set==\n");
    ScrInfo* scr = get_screen_info(info->index);
    scr->mode |= MODE_IPC_WINDOW;
    TLOG(LEVEL_DEBUG, "##IPC window (%d,%d),(%d,%d)##\n", box.x1, box.y1, box.x2, box.y2);
    scr->ipc.win = box;
    scr->ipc.index = info->index;
    ClientInfo& ipc = scr->client[IPC_SCREEN];
    ipc.output = &output_devices[IPC_SCREEN];
    ipc.index = IPC_SCREEN;
    ipc.fd = getIpcHanle();
    set_ipc_window_size(static_cast<unsigned>(box.x2 - box.x1), static_cast<unsigned>(box.y2 - box.y1));
    gs_ipc_mode.fetch_or(MODE_IPC_WINDOW, std::memory_order_relaxed);
    gs_ipc_window_index = info->index;
    return 0;
}

int handle_ipc_win_modify(int op, RECT_BOX* box, int index)
{
    ScrInfo* scr = get_screen_info(index);
    // A screen outside the double-player table has no IPC window either.
    if (scr == nullptr || box == nullptr || (scr->mode & MODE_IPC_WINDOW) == 0) {
        TLOG(LEVEL_ERROR, "current mode is not IPC_WINDOW\n");
        return -1;
    }
    TLOG(LEVEL_DEBUG, "%smodify ipc win (%d,%d),(%d,%d)\n", op == OP_IPC_WIN_DEL ? "--" : "++", box->x1, box->y1,
         box->x2, box->y2);
    RECT_LIST& head = scr->ipc.rm_rect;
    switch (op) {
    case OP_IPC_WIN_DEL:
        for (RECT_LIST* prev = &head; prev->next != nullptr; prev = prev->next) {
            RECT_LIST* node = prev->next;
            if (same_box(node->win, *box)) {
                prev->next = node->next;
                delete node;
                break;
            }
        }
        return 0;
    case OP_IPC_WIN_ADD: {
        int count = 0;
        RECT_LIST* tail = &head;
        for (; tail->next != nullptr; tail = tail->next)
            ++count;
        auto* node = count < IPC_CUTOUT_MAX ? new (std::nothrow) RECT_LIST{*box, nullptr} : nullptr;
        if (node == nullptr) {
            TLOG(LEVEL_ERROR, "malloc error\n");
            return -1;
        }
        tail->next = node;
        return 0;
    }
    case OP_IPC_WIN_CLR:
        free_cutouts(head);
        return 0;
    default:
        return 0;
    }
}

int handle_multimode_set(int index, MultiModeInfo* info)
{
    if (info == nullptr)
        return -1;
    // index is the client's scr_index, taken as it comes and never used to
    // index a table: only the IPC-extern bit's screen depends on it, and the
    // mode set returns 0 whatever its value.
    if ((info->mode & MODE_EXTERN) != 0) {
        TLOG(LEVEL_DEBUG, "==MODE_EXTERN set==\n");
        current_mode.store(MODE_EXTERN, std::memory_order_relaxed);
        set_extern_mode(*info);
    } else if ((info->mode & MODE_CLONE) != 0) {
        TLOG(LEVEL_DEBUG, "==MODE_CLONE set==\n");
        set_clone_mode();
    } else if ((info->mode & MODE_DOUBLE_PLAYER) != 0) {
        set_double_player_mode();
    }

    if ((info->mode & MODE_IPC_EXTERN) != 0)
        set_ipc_extern(index, *info);
    else if (ipc_mode() == MODE_IPC_EXTERN)
        close_ipc_extern(index);
    return 0;
}

void set_screen_mode(int clone, int pos)
{
    OutputDev& main = output_devices[0];
    OutputDev& sub = output_devices[1];
    main.connect_state = sub.connect_state = 1;
    main.width = screen_width;
    main.height = screen_height;
    sub.width = SUB_WIDTH;
    sub.height = SUB_HEIGHT;
    set_name(main, "MK1");
    set_name(sub, "MK2");
    int main_x = 0, main_y = 0, sub_x = 0, sub_y = 0;
    if (clone != 0) {
        // both at the origin
    } else if (pos == RIGHT_OF) {
        main_x = SUB_WIDTH;
    } else if (pos == ABOVE) {
        sub_y = screen_height;
    } else if (pos == BELOW) {
        main_y = SUB_HEIGHT;
    } else {
        sub_x = screen_width;
    }
    main.x = main_x;
    main.y = main_y;
    sub.x = sub_x;
    sub.y = sub_y;
}

void output_info_init()
{
    GetFbInfo("/dev/fb0");
    proc_get_screen_info(&screen_info, &output_devices[0]);
    dump_output_info();
    if (output_devices[1].connect_state != 1) {
        current_mode.store(MODE_CLONE, std::memory_order_relaxed);
        screen_info.postion[4] = 0;
        screen_info.client[1].output = nullptr;
    } else {
        current_mode.store(MODE_EXTERN, std::memory_order_relaxed);
        set_screen_mode(0, current_pos);
        proc_get_screen_info(&screen_info, &output_devices[0]);
        dump_output_info();
        screen_info.postion[4] = 2;
        screen_info.client[1].output = &output_devices[1];
    }
    screen_info.postion[3] = 1;
    screen_info.x = screen_info.y = 100;
    screen_info.mode = base_mode();
    set_client(screen_info.client[0], 1, 1, &output_devices[0]);
}

void dump_output_info()
{
    for (int i = 0; i < SCREEN_COUNT; ++i) {
        const OutputDev& out = output_devices[i];
        if (out.connect_state == 1)
            TLOG(LEVEL_DEBUG, "[output %d]:%s %dx%d + %d+%d\n", i, out.name.data(), out.width, out.height, out.x,
                 out.y);
    }
}

void screen_model_reset()
{
    output_devices = {};
    reset_screen(screen_info);
    for (ScrInfo& scr : double_screen)
        reset_screen(scr);
    current_mode.store(0, std::memory_order_relaxed);
    gs_ipc_mode.store(0, std::memory_order_relaxed);
    current_pos = POS_NONE;
    gs_ipc_window_index = 0;
    gs_orvel_cursor_flag = 0;
}
