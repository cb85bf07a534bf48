// The main loop's liveness watchdog. Each case runs the watchdog in a child
// process so that its abort ends only the child.
#include "common/cursor_timer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

TEST(WatchdogDeathTest, StalledCounterAbortsTheProcess)
{
    static std::atomic<unsigned int> counter{0};
    EXPECT_EXIT(
        {
            if (Init_Watch(1, &counter, 1) == 0)
                for (;;)
                    pause();
            std::_Exit(2);
        },
        testing::KilledBySignal(SIGABRT), "");
}

TEST(WatchdogDeathTest, MovingCounterAndDisabledWatchStayQuiet)
{
    static std::atomic<unsigned int> moving{0}, frozen{0};
    EXPECT_EXIT(
        {
            if (Init_Watch(0, &frozen, 1) != 0 || Init_Watch(1, &moving, 1) != 0)
                std::_Exit(2);
            // Three seconds of passes: a stall of two watchdog ticks would abort.
            for (int i = 0; i < 30; ++i, usleep(100000))
                moving.fetch_add(1);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
