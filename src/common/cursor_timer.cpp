#include "common/cursor_timer.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <new>

#include "common/cursor_timer_internal.h"
#include "common/log.h"
#include "common/worker_thread.h"

std::array<_CursorInfo, 3> gs_cursor{};

namespace {

struct __WatdogItem {
    unsigned int nCurrentCount;                 // seconds without progress
    unsigned int nWatchLength;                  // allowed seconds
    unsigned int nLastReset;                    // last counter value seen
    std::atomic<unsigned int>* pCurrentReset;  // the main loop's pass counter
};

void* watchdog_timer_proc(void* arg)
{
    auto* item = static_cast<__WatdogItem*>(arg);
    for (;;) {
        const unsigned int now = item->pCurrentReset->load(std::memory_order_relaxed);
        if (now == item->nLastReset) {
            if (++item->nCurrentCount > item->nWatchLength)
                break;
        } else {
            item->nLastReset = now;
            item->nCurrentCount = 0;
        }
        sleep(1);
    }
    // SIGABRT is not caught by the daemon: the process ends and the
    // supervisor restarts it.
    raise(SIGABRT);
    for (;;)
        sleep(10000);
    return nullptr;
}

}  // namespace

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
