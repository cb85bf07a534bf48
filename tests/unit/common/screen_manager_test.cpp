// The screen model: grid moves, layouts, modes, the IPC window and refused indexes.
#include "common/screen_manager.h"

#include "arm/screen_device_manager.h"
#include "support/unit_common.h"

namespace {

// A grid written as nine digits, row by row.
std::array<int32_t, GRID_CELLS> grid(const char* cells)
{
    std::array<int32_t, GRID_CELLS> g{};
    for (int i = 0; i < GRID_CELLS; ++i)
        g[i] = cells[i] - '0';
    return g;
}
MultiModeInfo mode(int bits) { return {bits, grid("000120000"), {}}; }
std::pair<int, int> ipc_size() { return {get_output_info(2)->width, get_output_info(2)->height}; }

// Cells 3 -> 2 and 2 -> 3 wrap to the next row (kept); a cell outside 0..3 is empty.
TEST(ScreenGrid, NeighboursFollowTheWholeGridParsePositionPlacesMainBySubAndOriginsFollow)
{
    screen_info.postion = grid("102302990");
    const std::tuple<unsigned, int, int> moves[] = {
        {0, LEFT_OF, -2}, {0, ABOVE, -2}, {0, RIGHT_OF, -1}, {0, BELOW, 2}, {2, RIGHT_OF, -1},
        {2, LEFT_OF, 1}, {1, RIGHT_OF, 2}, {3, LEFT_OF, -1}, {2, 7, -2}, {2, BELOW, -1}};
    for (auto [client, direction, expected] : moves)
        EXPECT_EQ(get_next_client(&screen_info, client, direction), expected) << client << " dir " << direction;
    const std::pair<const char*, int> positions[] = {
        {"010020000", ABOVE}, {"000120000", LEFT_OF}, {"000021000", RIGHT_OF}, {"000020010", BELOW},
        {"000012000", LEFT_OF}, {"000210000", RIGHT_OF}, {"020010000", BELOW}, {"000010020", ABOVE},
        {"120000000", POS_NONE}, {"001000000", POS_NONE}, {"000010000", POS_NONE},
        {"100100000", LEFT_OF}};  // the last main cell counts
    for (auto [cells, expected] : positions)
        EXPECT_EQ(parse_position(grid(cells).data()), expected) << cells;
    screen_width = 1280;
    screen_height = 800;
    const std::array<int, 6> cases[] = {  // clone, position, main x, y, sub x, y
        {1, RIGHT_OF, 0, 0, 0, 0}, {0, RIGHT_OF, 1920, 0, 0, 0}, {0, ABOVE, 0, 0, 0, 800},
        {0, BELOW, 0, 1080, 0, 0}, {0, LEFT_OF, 0, 0, 1280, 0},   {0, POS_NONE, 0, 0, 1280, 0}};
    for (const auto& c : cases) {
        set_screen_mode(c[0], c[1]);
        const OutputDev *m = get_output_info(0), *s = get_output_info(1);
        EXPECT_EQ(std::make_tuple(m->x, m->y, m->width, m->height), std::make_tuple(c[2], c[3], 1280, 800));
        EXPECT_EQ(std::make_tuple(s->x, s->y, s->width, s->height), std::make_tuple(c[4], c[5], 1920, 1080));
    }
    EXPECT_EQ(get_output_info(3), nullptr);
}

// Any client's scr_index returns 0 and indexes no table (screen 9 closes no IPC-extern bit); a
// second double-player set leaves the players alone; IPC-extern closes only as the only IPC bit;
// clone, or a sub screen's client leaving, takes the cursor back to main.
TEST(ScreenModes, AnyScreenIndexDoublePlayerTwiceIpcExternClosingAndTheCursorBackToMain)
{
    testsupport::ScreenClients clients({0, 1, 2});
    testsupport::LogCapture log(2);
    output_info_init();
    for (auto [bits, index] : {std::pair{MODE_EXTERN | MODE_IPC_EXTERN, 5}, {MODE_EXTERN, -1},
                               {MODE_DOUBLE_PLAYER | MODE_IPC_EXTERN, 9}, {MODE_DOUBLE_PLAYER, 9}, {MODE_CLONE, 0}, {MODE_DOUBLE_PLAYER, 0}}) {
        MultiModeInfo info = mode(bits);
        EXPECT_EQ(handle_multimode_set(index, &info), 0);
        EXPECT_EQ(get_current_multimode(), bits | (index == 9 ? MODE_IPC_EXTERN : 0)) << bits;
    }
    EXPECT_TRUE(get_screen_info(1) == &double_screen[1] && get_screen_info(3) == nullptr);
    EXPECT_EQ(get_cursor_client(&double_screen[1]), 1);
    double_screen[1].x = 555;
    MultiModeInfo info = mode(MODE_DOUBLE_PLAYER);
    ASSERT_EQ(handle_multimode_set(1, &info), 0);
    EXPECT_TRUE(log.has("Current mode is already MODE_DOUBLE_PLAYER\n"));
    EXPECT_EQ(double_screen[1].x, 555);

    screen_model_reset();
    output_info_init();
    MultiModeInfo ext = mode(MODE_CLONE | MODE_IPC_EXTERN), clone = mode(MODE_CLONE);
    ASSERT_EQ(handle_multimode_set(0, &ext), 0);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE | MODE_IPC_EXTERN);
    set_ipc_window_size(1920, 1080);
    ASSERT_EQ(screen_change_cursor(&screen_info, 0, 2), 1);
    IpcWinInfo win{1, 0, {100, 900, 50, 650}};
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    handle_multimode_set(0, &clone);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE | MODE_IPC_EXTERN | MODE_IPC_WINDOW);  // window open: kept
    win.isIpcWin = 0;
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    handle_multimode_set(0, &clone);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_TRUE((screen_info.mode & MODE_IPC_EXTERN) == 0 && get_cursor_client(&screen_info) == 0);

    screen_model_reset();
    output_info_init();
    MultiModeInfo extended = mode(MODE_EXTERN);
    const auto cursor_to_sub = [&] {
        ASSERT_TRUE(handle_multimode_set(0, &extended) == 0 && screen_change_cursor(&screen_info, 0, 1) == 1);
        clients.events(0);
        clients.events(1);
    };
    cursor_to_sub();
    ASSERT_EQ(handle_multimode_set(0, &clone), 0);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_EQ(brief(clients.events(1)), (Evs{{27, 1, 0}}));
    EXPECT_EQ(brief(clients.events(0)), (Evs{{27, 0, 0}, {28, 0, 0}, {28, 1, 0}, {28, 2, 0}}));
    EXPECT_TRUE(get_cursor_client(&screen_info) == 0 && screen_info.client[1].output != nullptr);  // kept in clone
    cursor_to_sub();
    EXPECT_TRUE(handle_inputsys_close(clients.daemon_fd(1)) == 0 && get_cursor_client(&screen_info) == 0);
    EXPECT_EQ(brief(clients.events(0)), (Evs{{27, 0, 0}}));
}

// Cut-outs: two copies added and one deleted still cut out, cleared none; the list has a cap.
TEST(IpcWindow, OpenCutOutsAndCloseGiveTheCursorBackToTheHostAndBadGeometryIsRefused)
{
    testsupport::ScreenClients clients({0, 1, 2});
    testsupport::LogCapture log;
    output_info_init();
    IpcWinInfo win{1, 0, {100, 900, 50, 650}};
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    EXPECT_EQ(ipc_size(), std::make_pair(800, 600));
    RECT_BOX cut{200, 300, 100, 200};
    EXPECT_EQ(is_in_ipc_window(&screen_info, 250, 150), 1);
    for (auto [op, inside] : {std::pair{OP_IPC_WIN_ADD, 0}, {OP_IPC_WIN_ADD, 0}, {OP_IPC_WIN_DEL, 0}, {OP_IPC_WIN_CLR, 1}}) {
        EXPECT_EQ(handle_ipc_win_modify(op, &cut, 0), 0);
        EXPECT_EQ(is_in_ipc_window(&screen_info, 250, 150), inside) << op;
    }
    EXPECT_EQ(is_in_ipc_window(&screen_info, 900, 150), 0);  // x2 is outside
    int added = 0;
    while (added < 1000 && handle_ipc_win_modify(OP_IPC_WIN_ADD, &cut, 0) == 0)
        ++added;
    EXPECT_TRUE(added == 64 && log.has("malloc error\n"));

    ASSERT_EQ(screen_change_cursor(&screen_info, 0, 2), 1);
    clients.events(0);
    clients.bytes(2);
    win.isIpcWin = 0;
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_EQ(brief(clients.events(0)), (Evs{{27, 0, 0}}));
    EXPECT_EQ(clients.bytes(2).size(), 16U);  // the move-out frame of the remote link
    EXPECT_EQ(handle_ipcwindow_set(&win), -1);

    // IPC sizes outside 1..32767, bad rectangles and window hosts other than 0 and 1 keep the
    // old geometry; cursor and focus moves to no client change nothing.
    ASSERT_EQ(set_ipc_window_size(640, 480), 0);
    for (auto [w, h] : {std::pair{0U, 600U}, {0x80000000U, 600U}, {800U, 32768U}})
        EXPECT_EQ(set_ipc_window_size(w, h), -1) << w;
    for (IpcWinInfo bad : {IpcWinInfo{1, 0, {900, 100, 50, 650}}, {1, 0, {0, INT32_MIN, 0, 600}},
                           {1, 0, {-32767, 32767, 0, 600}}, {1, 0, {INT32_MIN, -INT32_MAX, 0, 600}},
                           {1, IPC_SCREEN, {100, 900, 50, 650}}})
        EXPECT_EQ(handle_ipcwindow_set(&bad), -1) << bad.index << " " << bad.ipcWindow.x1;
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_EQ(ipc_size(), std::make_pair(640, 480));
    EXPECT_EQ(screen_change_cursor(&screen_info, 0, 3), 0);
    EXPECT_EQ(screen_change_focus(&screen_info, -1, 1), 0);
    EXPECT_EQ(log.count("Check client is not exist,from:0;to:3\n"), 1);
}

}  // namespace
