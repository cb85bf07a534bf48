#include "common/cursor_timer.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <new>
#include <thread>

#include "common/cursor_timer_internal.h"
#include "common/OrvelClient.h"
#include "common/log.h"
#include "common/screen_manager.h"
#include "common/service_notify.h"
#include "common/worker_thread.h"

std::array<_CursorInfo, 3> gs_cursor{};
std::atomic<int> time_out{30};
std::mutex cursor_lock;

namespace {

struct __WatdogItem {
    unsigned int nCurrentCount;                 // seconds without progress
    unsigned int nWatchLength;                  // allowed seconds
    unsigned int nLastReset;                    // last counter value seen
    std::atomic<unsigned int>* pCurrentReset;  // the main loop's pass counter
};

// Checks once whether the loop has made a pass since the last check; true
// once it has made none for more than the allowed seconds.
bool watchdog_stale(__WatdogItem& item)
{
    const unsigned int now = item.pCurrentReset->load(std::memory_order_relaxed);
    if (now == item.nLastReset)
        return ++item.nCurrentCount > item.nWatchLength;
    item.nLastReset = now;
    item.nCurrentCount = 0;
    return false;
}

// A healthy loop passes at least once a second (its select waits at most
// one), so a check may find it between passes; two checks in a row without
// a pass are tolerated before the keep-alives stop.
constexpr unsigned int KEEPALIVE_MISSED_CHECKS = 2;

void* watchdog_timer_proc(void* arg)
{
    using clock = std::chrono::steady_clock;
    auto* item = static_cast<__WatdogItem*>(arg);
    // A service manager that asked for keep-alives ($WATCHDOG_USEC) gets
    // "WATCHDOG=1" at half its period while the loop is alive; the daemon's
    // own abort below stays as it is. Each wake-up is planned from the
    // present, so a thread held up (a stopped process) does not catch up
    // with a burst of checks.
    const std::chrono::microseconds keepalive{service_watchdog_interval_us()};
    auto next_check = clock::now();
    auto next_keepalive = next_check + keepalive;
    for (;;) {
        const auto now = clock::now();
        if (now >= next_check) {
            if (watchdog_stale(*item))
                break;
            next_check = now + std::chrono::seconds(1);
        }
        if (keepalive.count() > 0 && now >= next_keepalive) {
            if (item->nCurrentCount <= KEEPALIVE_MISSED_CHECKS)
                service_notify("WATCHDOG=1");
            next_keepalive = now + keepalive;
        }
        std::this_thread::sleep_until(keepalive.count() > 0 ? std::min(next_check, next_keepalive) : next_check);
    }
    // SIGABRT is not caught by the daemon: the process ends and the
    // supervisor restarts it.
    raise(SIGABRT);
    for (;;)
        sleep(10000);
    return nullptr;
}

// Decides for one entry and announces a change on screen; a failed
// announcement keeps the old state, so it is tried again next second.
// Called with cursor_lock held.
void decide(_CursorInfo& entry, int screen, int usb_num)
{
    const int state = entry.state.load(std::memory_order_relaxed);
    const int next = handle_cursor_state(usb_num, entry.counter.load(std::memory_order_relaxed), state);
    if (next == state || cursor_state_change(screen, next) == -1)
        return;
    entry.state.store(next, std::memory_order_relaxed);
    // Hidden until the next motion resets the counter.
    if (next == 0)
        entry.counter.store(time_out.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

void* cursor_hide_timer_proc(void*)
{
    cursor_timer_start_state();
    for (;;) {
        usleep(1000000);
        cursor_timer_tick();
    }
    return nullptr;
}

bool double_player()
{
    return (get_current_multimode() & MODE_DOUBLE_PLAYER) != 0;
}

}  // namespace

void cursor_timer_start_state()
{
    gs_cursor[0].state.store(1, std::memory_order_relaxed);
    gs_cursor[1].state.store(1, std::memory_order_relaxed);
}

void cursor_timer_tick()
{
    gs_cursor[0].counter.fetch_add(1, std::memory_order_relaxed);
    gs_cursor[1].counter.fetch_add(1, std::memory_order_relaxed);
    // The announcement goes to a client's socket: under the loop lock, like
    // every send to a client, so that the descriptor read from gs_clients is
    // not closed by the main loop and handed to another program meanwhile.
    // Taken before cursor_lock, in the order the main loop takes them.
    LoopLockGuard loop;
    std::lock_guard<std::mutex> guard(cursor_lock);
    if (double_player()) {
        for (int screen = 0; screen < 2; ++screen)
            decide(gs_cursor[screen], screen, gs_cursor[screen].usb_num.load(std::memory_order_relaxed));
    } else {
        const int usb = gs_cursor[0].usb_num.load(std::memory_order_relaxed) +
                        gs_cursor[1].usb_num.load(std::memory_order_relaxed);
        decide(gs_cursor[0], 0, usb);
    }
}

int handle_cursor_state(int usb_num, int counter, int state)
{
    const int limit = time_out.load(std::memory_order_relaxed);
    if (state == 1)
        return usb_num < 1 || counter >= limit ? 0 : 1;
    if (state == 0)
        return usb_num > 0 && counter < limit ? 1 : 0;
    return state;
}

int init_cursor_timer()
{
    if (start_worker_thread(cursor_hide_timer_proc, nullptr) != 0) {
        TLOG(LEVEL_ERROR, "create cursor timer thread failed\n");
        return -1;
    }
    return 0;
}

void set_cursor_hide_timer_seconds(int s)
{
    if (s >= 1)
        time_out.store(s, std::memory_order_relaxed);
}

void clear_timer_flag(int client)
{
    if (!double_player())
        client = 0;
    // Mouse events that reach no client come with -1: ignored.
    if (client >= 0 && client < static_cast<int>(gs_cursor.size()))
        gs_cursor[client].counter.store(0, std::memory_order_relaxed);
}

void set_cursor_move_state(unsigned client, unsigned lost)
{
    if (client > 1 || lost > 1)
        return;
    std::lock_guard<std::mutex> guard(cursor_lock);
    gs_cursor[double_player() ? client : 0].state.store(static_cast<int>(1 - lost), std::memory_order_relaxed);
}

int Init_Watch(int enable, std::atomic<unsigned int>* counter, unsigned int limit)
{
    if (enable == 0)
        return 0;
    if (counter == nullptr)
        return -1;
    // The record lives as long as its thread, i.e. for the life of the process.
    auto* item = new (std::nothrow) __WatdogItem{0, limit, 0, counter};
    if (item == nullptr)
        return -1;
    if (start_worker_thread(watchdog_timer_proc, item) != 0) {
        TLOG(LEVEL_ERROR, "create watchdog_timer_proc thread failed\n");
        delete item;
        return -1;
    }
    return 0;
}

void usb_input_increase(unsigned screen)
{
    // Screens outside the table are ignored rather than written past its end.
    if (screen < gs_cursor.size())
        gs_cursor[screen].usb_num.fetch_add(1, std::memory_order_relaxed);
}

void usb_input_decrease(unsigned screen)
{
    if (screen < gs_cursor.size())
        gs_cursor[screen].usb_num.fetch_sub(1, std::memory_order_relaxed);
}
