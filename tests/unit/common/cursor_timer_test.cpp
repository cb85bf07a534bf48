// The main loop's liveness watchdog (run in a child process, whose abort ends only the child) and
// the cursor hide timer.
#include "common/cursor_timer.h"

#include "support/unit_common.h"

TEST(WatchdogDeathTest, AMovingCounterAndADisabledWatchStayQuietAndAStalledCounterAborts)
{
    static std::atomic<unsigned int> moving{0}, frozen{0};
    EXPECT_EXIT(
        {
            if (Init_Watch(0, &frozen, 1) != 0 || Init_Watch(1, &moving, 1) != 0)
                std::_Exit(2);
            for (int i = 0; i < 30; ++i, usleep(100000))  // three seconds of passes
                moving.fetch_add(1);
            std::fputs("passes kept it quiet\n", stderr);
            for (;;)
                pause();
        },
        testing::KilledBySignal(SIGABRT), "passes kept it quiet");
}

// The decision: shown with a mouse until the time-out, hidden otherwise, unknown states kept. The
// timer hides at the first tick without a mouse (a failed announcement retried), shows after motion.
TEST(CursorTimer, DecidesByMouseAndTimeOutHidesWithoutAMouseRetriesAndShowsAfterMotion)
{
    struct Case {
        int usb, counter, state, expected;
    } cases[] = {{1, 0, 1, 1}, {0, 0, 1, 0}, {1, 30, 1, 0}, {1, 29, 0, 1}, {1, 30, 0, 0}, {0, 0, 0, 0}, {1, 0, 7, 7}};
    for (const Case& c : cases)
        EXPECT_EQ(handle_cursor_state(c.usb, c.counter, c.state), c.expected) << c.usb << "," << c.counter << "," << c.state;
    set_cursor_hide_timer_seconds(0);
    set_cursor_hide_timer_seconds(-4);
    EXPECT_EQ(time_out.load(), 30);
    set_cursor_hide_timer_seconds(5);
    EXPECT_EQ(handle_cursor_state(1, 5, 1), 0);
    set_cursor_hide_timer_seconds(30);

    testsupport::ScreenClients clients(std::vector<int>{});
    output_info_init();
    cursor_timer_start_state();
    cursor_timer_tick();  // nobody to tell: the state stays
    EXPECT_EQ(gs_cursor[0].state.load(), 1);

    testsupport::ScreenClients connected({0});
    output_info_init();
    cursor_timer_tick();
    EXPECT_EQ(brief(connected.events(0)), (std::vector<Ev>{{33, 0, 0}}));
    EXPECT_TRUE(gs_cursor[0].state.load() == 0 && gs_cursor[0].counter.load() == 31);
    usb_input_increase(0);
    cursor_timer_tick();
    EXPECT_TRUE(connected.events(0).empty());  // idle mouse: stays hidden
    clear_timer_flag(0);
    cursor_timer_tick();
    EXPECT_EQ(brief(connected.events(0)), (std::vector<Ev>{{33, 1, 0}}));
    clear_timer_flag(-1);  // no client: entry 0 outside double-player mode
    EXPECT_EQ(gs_cursor[0].counter.load(), 0);
    set_cursor_move_state(1, 1);
    EXPECT_EQ(gs_cursor[0].state.load(), 0);
    set_cursor_move_state(2, 0);  // ignored
    set_cursor_move_state(0, 2);
    EXPECT_EQ(gs_cursor[0].state.load(), 0);
    usb_input_decrease(0);
}
