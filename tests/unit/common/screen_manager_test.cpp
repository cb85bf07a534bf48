// The screen model: grid moves, layouts, modes, the IPC window and refused indexes.
#include "common/screen_manager.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>

#include "arm/screen_device_manager.h"
#include "common/inputdevice_manager.h"
#include "common/screen_manager_internal.h"
#include "support/log_capture.h"
#include "support/screen_clients.h"

namespace {

using testsupport::brief;
using testsupport::Ev;
using testsupport::ScreenClients;

const std::vector<Ev> kLocksOff = {{28, 0, 0}, {28, 1, 0}, {28, 2, 0}};

std::vector<Ev> operator+(std::vector<Ev> a, const std::vector<Ev>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

MultiModeInfo mode(int bits, std::array<int32_t, GRID_CELLS> grid = {0, 0, 0, 1, 2, 0, 0, 0, 0})
{
    return {bits, grid, {}};
}

TEST(ScreenGrid, NeighboursFollowTheWholeGridNotTheRow)
{
    ScrInfo& scr = screen_info;
    struct Case {
        unsigned client;
        int direction, expected;
    } cases[] = {
        {0, LEFT_OF, -2}, {0, ABOVE, -2}, {0, RIGHT_OF, -1}, {0, BELOW, 2}, {2, RIGHT_OF, -1},
        {2, LEFT_OF, 1},   // cell 3 -> cell 2 of the row above: kept
        {1, RIGHT_OF, 2},  // cell 2 -> cell 3 of the row below: kept
        {3, LEFT_OF, -1},  // not in the grid
        {2, 7, -2},        // bad direction
        {2, BELOW, -1},    // a cell holding a value outside 0..3 is empty
    };
    scr.postion = {1, 0, 2, 3, 0, 2, 9, 9, 0};
    for (const Case& c : cases)
        EXPECT_EQ(get_next_client(&scr, c.client, c.direction), c.expected) << c.client << " dir " << c.direction;
}

TEST(ScreenGrid, ParsePositionSaysWhereMainStandsRelativeToSub)
{
    struct Case {
        std::array<int, GRID_CELLS> grid;
        int expected;
    } cases[] = {
        {{0, 1, 0, 0, 2, 0, 0, 0, 0}, ABOVE},     {{0, 0, 0, 1, 2, 0, 0, 0, 0}, LEFT_OF},
        {{0, 0, 0, 0, 2, 1, 0, 0, 0}, RIGHT_OF},  {{0, 0, 0, 0, 2, 0, 0, 1, 0}, BELOW},
        {{0, 0, 0, 0, 1, 2, 0, 0, 0}, LEFT_OF},   {{0, 0, 0, 2, 1, 0, 0, 0, 0}, RIGHT_OF},
        {{0, 2, 0, 0, 1, 0, 0, 0, 0}, BELOW},     {{0, 0, 0, 0, 1, 0, 0, 2, 0}, ABOVE},
        {{1, 2, 0, 0, 0, 0, 0, 0, 0}, POS_NONE},  {{0, 0, 1, 0, 0, 0, 0, 0, 0}, POS_NONE},
        {{0, 0, 0, 0, 1, 0, 0, 0, 0}, POS_NONE},  {{1, 0, 0, 1, 0, 0, 0, 0, 0}, LEFT_OF},  // last main cell counts
    };
    for (const Case& c : cases)
        EXPECT_EQ(parse_position(c.grid.data()), c.expected);
}

TEST(ScreenLayout, OutputOriginsByCloneAndPosition)
{
    screen_width = 1280;
    screen_height = 800;
    struct Case {
        int clone, pos, main_x, main_y, sub_x, sub_y;
    } cases[] = {
        {1, RIGHT_OF, 0, 0, 0, 0}, {0, RIGHT_OF, 1920, 0, 0, 0}, {0, ABOVE, 0, 0, 0, 800},
        {0, BELOW, 0, 1080, 0, 0}, {0, LEFT_OF, 0, 0, 1280, 0},   {0, POS_NONE, 0, 0, 1280, 0},
    };
    for (const Case& c : cases) {
        set_screen_mode(c.clone, c.pos);
        const OutputDev* m = get_output_info(0);
        const OutputDev* s = get_output_info(1);
        EXPECT_EQ(std::make_tuple(m->x, m->y, m->width, m->height), std::make_tuple(c.main_x, c.main_y, 1280, 800));
        EXPECT_EQ(std::make_tuple(s->x, s->y, s->width, s->height), std::make_tuple(c.sub_x, c.sub_y, 1920, 1080));
    }
    EXPECT_EQ(get_output_info(3), nullptr);
}

TEST(ScreenModes, CloneOrALeavingSubTakesTheCursorBackToMain)
{
    ScreenClients clients;
    output_info_init();
    MultiModeInfo ext = mode(MODE_EXTERN), clone = mode(MODE_CLONE);
    const auto cursor_to_sub = [&] {
        ASSERT_EQ(handle_multimode_set(0, &ext), 0);
        ASSERT_EQ(screen_change_cursor(&screen_info, 0, 1), 1);
        clients.events(0);
        clients.events(1);
    };
    cursor_to_sub();
    ASSERT_EQ(handle_multimode_set(0, &clone), 0);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_EQ(brief(clients.events(1)), (std::vector<Ev>{{27, 1, 0}}));
    EXPECT_EQ(brief(clients.events(0)), (std::vector<Ev>{{27, 0, 0}}) + kLocksOff);
    EXPECT_EQ(get_cursor_client(&screen_info), 0);
    EXPECT_NE(screen_info.client[1].output, nullptr);  // kept in clone mode
    cursor_to_sub();
    EXPECT_TRUE(handle_inputsys_close(clients.daemon_fd(1)) == 0 && get_cursor_client(&screen_info) == 0);
    EXPECT_EQ(brief(clients.events(0)), (std::vector<Ev>{{27, 0, 0}}));
}

TEST(ScreenModes, DoublePlayerTwiceLeavesThePlayersAlone)
{
    ScreenClients clients;
    testsupport::LogCapture log(2);
    output_info_init();
    MultiModeInfo info = mode(MODE_DOUBLE_PLAYER);
    ASSERT_EQ(handle_multimode_set(0, &info), 0);
    EXPECT_EQ(get_current_multimode(), MODE_DOUBLE_PLAYER);
    EXPECT_TRUE(get_screen_info(1) == &double_screen[1] && get_screen_info(3) == nullptr);
    EXPECT_EQ(get_cursor_client(&double_screen[1]), 1);
    double_screen[1].x = 555;
    ASSERT_EQ(handle_multimode_set(1, &info), 0);
    EXPECT_TRUE(log.has("Current mode is already MODE_DOUBLE_PLAYER\n"));
    EXPECT_EQ(double_screen[1].x, 555);
}

TEST(ScreenModes, IpcExternClosesOnlyWhenItIsTheOnlyIpcBit)
{
    ScreenClients clients({0, 1, 2});
    output_info_init();
    MultiModeInfo ext = mode(MODE_CLONE | MODE_IPC_EXTERN);
    ASSERT_EQ(handle_multimode_set(0, &ext), 0);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE | MODE_IPC_EXTERN);
    set_ipc_window_size(1920, 1080);
    ASSERT_EQ(screen_change_cursor(&screen_info, 0, 2), 1);

    IpcWinInfo win{1, 0, {100, 900, 50, 650}};
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    MultiModeInfo clone = mode(MODE_CLONE);
    handle_multimode_set(0, &clone);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE | MODE_IPC_EXTERN | MODE_IPC_WINDOW);  // window open: kept

    win.isIpcWin = 0;
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    clients.events(0);
    handle_multimode_set(0, &clone);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_TRUE((screen_info.mode & MODE_IPC_EXTERN) == 0 && get_cursor_client(&screen_info) == 0);
}

TEST(IpcWindow, OpenCutOutsAndCloseGiveTheCursorBackToTheHost)
{
    ScreenClients clients({0, 1, 2});
    output_info_init();
    IpcWinInfo win{1, 0, {100, 900, 50, 650}};
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    EXPECT_EQ(std::make_pair(get_output_info(2)->width, get_output_info(2)->height), std::make_pair(800, 600));

    RECT_BOX cut{200, 300, 100, 200};
    EXPECT_EQ(is_in_ipc_window(&screen_info, 250, 150), 1);
    // Two copies added, one deleted: still cut out; cleared: in again.
    for (auto [op, inside] : {std::pair{OP_IPC_WIN_ADD, 0}, {OP_IPC_WIN_ADD, 0}, {OP_IPC_WIN_DEL, 0}, {OP_IPC_WIN_CLR, 1}}) {
        EXPECT_EQ(handle_ipc_win_modify(op, &cut, 0), 0);
        EXPECT_EQ(is_in_ipc_window(&screen_info, 250, 150), inside) << op;
    }
    EXPECT_EQ(is_in_ipc_window(&screen_info, 900, 150), 0);  // x2 is outside

    ASSERT_EQ(screen_change_cursor(&screen_info, 0, 2), 1);
    clients.events(0);
    clients.bytes(2);
    win.isIpcWin = 0;
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_EQ(brief(clients.events(0)), (std::vector<Ev>{{27, 0, 0}}));
    EXPECT_EQ(clients.bytes(2).size(), 16U);  // the move-out frame of the remote link
    EXPECT_EQ(handle_ipcwindow_set(&win), -1);
}

TEST(ScreenRefusals, IndexesOutsideTheTablesChangeNothing)
{
    ScreenClients clients;
    testsupport::LogCapture log;
    output_info_init();
    // IPC sizes outside 1..32767 and window hosts other than 0 and 1: old geometry kept.
    ASSERT_EQ(set_ipc_window_size(800, 600), 0);
    for (auto [w, h] : {std::pair{0U, 600U}, {0x80000000U, 600U}, {800U, 32768U}})
        EXPECT_EQ(set_ipc_window_size(w, h), -1) << w;
    for (IpcWinInfo bad : {IpcWinInfo{1, 0, {900, 100, 50, 650}}, {1, 0, {0, INT32_MIN, 0, 600}},
                           {1, 0, {-32767, 32767, 0, 600}}, {1, 0, {INT32_MIN, -INT32_MAX, 0, 600}},
                           {1, IPC_SCREEN, {100, 900, 50, 650}}})
        EXPECT_EQ(handle_ipcwindow_set(&bad), -1) << bad.index << " " << bad.ipcWindow.x1;
    EXPECT_EQ(get_current_multimode(), MODE_CLONE);
    EXPECT_EQ(std::make_pair(get_output_info(2)->width, get_output_info(2)->height), std::make_pair(800, 600));

    EXPECT_EQ(screen_change_cursor(&screen_info, 0, 3), 0);
    EXPECT_EQ(screen_change_focus(&screen_info, -1, 1), 0);
    EXPECT_EQ(log.count("Check client is not exist,from:0;to:3\n"), 1);

    // The cut-out list has a cap.
    IpcWinInfo win{1, 0, {0, 10, 0, 10}};
    ASSERT_EQ(handle_ipcwindow_set(&win), 0);
    RECT_BOX cut{1, 2, 1, 2};
    int added = 0;
    while (added < 1000 && handle_ipc_win_modify(OP_IPC_WIN_ADD, &cut, 0) == 0)
        ++added;
    EXPECT_TRUE(added == 64 && log.has("malloc error\n"));
}

// Any client's scr_index returns 0 and indexes no table (screen 9 closes no IPC-extern bit).
TEST(ScreenModes, AModeSetTakesAnyScreenIndex)
{
    ScreenClients clients({0, 1, 2});
    output_info_init();
    for (auto [bits, index] : {std::pair{MODE_EXTERN | MODE_IPC_EXTERN, 5}, {MODE_EXTERN, -1},
                               {MODE_DOUBLE_PLAYER | MODE_IPC_EXTERN, 9}, {MODE_DOUBLE_PLAYER, 9}}) {
        MultiModeInfo info = mode(bits);
        EXPECT_EQ(handle_multimode_set(index, &info), 0);
        EXPECT_EQ(get_current_multimode(), bits | (index == 9 ? MODE_IPC_EXTERN : 0)) << bits;
    }
}

}  // namespace
