// Monitor-list state shared by the main loop and the list's tests.
#pragma once

#include <array>
#include <atomic>

#include "msg_handle.h"

// One entry of event_list. The fields are atomic because the main loop walks
// the list without event_lock while the hot-plug thread may append or shift
// entries. A walker reads an entry through monitor_entry(), which checks
// list_seq so that it never pairs one entry's descriptor with another entry's
// handler or argument.
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
// Odd while a writer changes event_list or event_num (writers hold event_lock).
extern std::atomic<unsigned> list_seq;
// Odd while the main loop walks the list and calls handlers.
extern std::atomic<unsigned> dispatch_seq;

// Entry i as one consistent record; a zeroed record when i is not in use.
EventHandleRec monitor_entry(int i);

// Called with every entry just added or replaced (after event_lock is
// released); null unless a test sets it.
using monitor_add_observer_fn = void (*)(const EventHandleRec& rec);
extern monitor_add_observer_fn monitor_add_observer;
