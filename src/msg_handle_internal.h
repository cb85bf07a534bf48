// Monitor-list state shared by the main loop and the list's tests.
#pragma once

#include <array>
#include <atomic>

#include "msg_handle.h"

// One entry of event_list. The fields are atomic because the main loop walks
// the list without event_lock while the hot-plug thread may append or shift
// entries; the walk tolerates a stale view (one entry skipped or repeated).
struct MonitorSlot {
    std::atomic<int> fd{0};
    std::atomic<pfneventHandle> handle{nullptr};
    std::atomic<void*> para{nullptr};

    EventHandleRec load() const;
    void store(const EventHandleRec& rec);
};

// Densely packed from index 0; event_num entries are used.
extern std::array<MonitorSlot, EVENT_LIST_MAX> event_list;
extern std::atomic<int> event_num;

inline EventHandleRec monitor_entry(int i)
{
    return event_list[i].load();
}
