#include "msg_handle.h"

#include <fcntl.h>
#include <sched.h>

#include <mutex>

#include "arm/hot_plug.h"
#include "common/log.h"
#include "common/system_msg.h"
#include "msg_handle_internal.h"

std::array<MonitorSlot, EVENT_LIST_MAX> event_list{};
std::atomic<int> event_num{0};
std::atomic<unsigned> list_seq{0};
std::atomic<unsigned> dispatch_seq{0};
monitor_add_observer_fn monitor_add_observer = nullptr;

// Entries are stored with release and loaded with acquire: a walker that
// sees any value a writer stored also sees the writer's opening list_seq
// increment, and so reads the entry again.
EventHandleRec MonitorSlot::load() const
{
    return {fd.load(std::memory_order_acquire), handle.load(std::memory_order_acquire),
            para.load(std::memory_order_acquire)};
}

void MonitorSlot::store(const EventHandleRec& rec)
{
    handle.store(rec.handle, std::memory_order_release);
    para.store(rec.para, std::memory_order_release);
    fd.store(rec.fd, std::memory_order_release);
}

namespace {
// Serialises add_monitor_handle and remove_monitor_handle against each other.
// The main loop's walk does not take it (it runs under the remote-screen
// socket lock); it re-reads the count after every handler, so a change made
// meanwhile makes it skip or repeat at most one entry in that pass.
std::mutex event_lock;

// True on the main loop's thread while it calls handlers.
thread_local bool dispatching = false;

// Brackets one change of the list: list_seq is odd in between, and a walker
// that read an entry across the change reads it again.
class ListChange {
public:
    ListChange() { list_seq.fetch_add(1, std::memory_order_relaxed); }
    ~ListChange() { list_seq.fetch_add(1, std::memory_order_release); }
    ListChange(const ListChange&) = delete;
    ListChange& operator=(const ListChange&) = delete;
};

// Reads entry i and the count as one consistent view. False when i is not in
// use.
bool read_entry(int i, EventHandleRec* out)
{
    for (;;) {
        const unsigned before = list_seq.load(std::memory_order_acquire);
        if ((before & 1U) != 0) {
            sched_yield();  // a writer is shifting entries; it holds event_lock only briefly
            continue;
        }
        const int n = event_num.load(std::memory_order_acquire);
        const bool used = i >= 0 && i < n && i < EVENT_LIST_MAX;
        const EventHandleRec rec = used ? event_list[i].load() : EventHandleRec{};
        if (list_seq.load(std::memory_order_relaxed) == before) {
            *out = rec;
            return used;
        }
    }
}
// Replaces the entry of rec.fd or appends rec; false when the list is full.
bool insert_entry(const EventHandleRec& rec)
{
    std::lock_guard<std::mutex> guard(event_lock);
    const int n = event_num.load(std::memory_order_relaxed);
    for (int i = 0; i < n; ++i) {
        if (event_list[i].fd.load(std::memory_order_relaxed) == rec.fd) {
            ListChange change;
            event_list[i].store(rec);
            return true;
        }
    }
    // A concurrent add may have filled the list since the caller's check.
    if (n >= EVENT_LIST_MAX) {
        TLOG(LEVEL_ERROR, "list is full\n");
        return false;
    }
    ListChange change;
    event_list[n].store(rec);
    event_num.store(n + 1, std::memory_order_release);
    return true;
}
}  // namespace

EventHandleRec monitor_entry(int i)
{
    EventHandleRec rec{};
    read_entry(i, &rec);
    return rec;
}

int set_non_block(int fd)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags & O_NONBLOCK)
        return 0;
    return fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

int add_monitor_handle(int fd, int (*handle)(void*), void* para)
{
    // A descriptor select cannot watch (FD_SETSIZE and above) would stay in
    // the list unserved for ever: refused like a bad one, so its owner closes
    // it.
    if (handle == nullptr || fd <= 0 || fd >= FD_SETSIZE) {
        TLOG(LEVEL_ERROR, "add_fd_list para error\n");
        return -1;
    }
    // Checked before the search for an existing entry: a full list refuses
    // even a re-registration.
    if (event_num.load(std::memory_order_relaxed) >= EVENT_LIST_MAX) {
        TLOG(LEVEL_ERROR, "list is full\n");
        return -1;
    }
    set_non_block(fd);

    if (!insert_entry({fd, handle, para}))
        return -1;
    if (monitor_add_observer != nullptr)
        monitor_add_observer({fd, handle, para});
    return 0;
}

int remove_monitor_handle(int fd)
{
    if (fd <= 0) {
        TLOG(LEVEL_ERROR, "add_fd_list para error\n");
        return -1;
    }
    std::lock_guard<std::mutex> guard(event_lock);
    const int n = event_num.load(std::memory_order_relaxed);
    for (int i = 0; i < n; ++i) {
        if (event_list[i].fd.load(std::memory_order_relaxed) != fd)
            continue;
        ListChange change;
        event_list[i].store({});
        for (int j = i; j + 1 < n; ++j)
            event_list[j].store(event_list[j + 1].load());
        event_num.store(n - 1, std::memory_order_release);
        event_list[n - 1].store({});
        return 0;
    }
    return 0;
}

void fill_monitor_set(fd_set* set, int* max_fd)
{
    FD_ZERO(set);
    EventHandleRec rec{};
    for (int i = 0; read_entry(i, &rec); ++i) {
        if (rec.fd <= 0 || rec.fd >= FD_SETSIZE)
            continue;
        FD_SET(rec.fd, set);
        if (rec.fd > *max_fd)
            *max_fd = rec.fd;
    }
}

void dispatch_monitor_handles(const fd_set* ready)
{
    // Odd while walking: a remover on another thread waits for this pass to
    // end before it frees what a handler may be using.
    dispatch_seq.fetch_add(1, std::memory_order_acq_rel);
    dispatching = true;
    EventHandleRec rec{};
    for (int i = 0; read_entry(i, &rec); ++i) {
        if (rec.fd > 0 && rec.fd < FD_SETSIZE && FD_ISSET(rec.fd, ready) && rec.handle != nullptr)
            rec.handle(rec.para);
    }
    dispatching = false;
    dispatch_seq.fetch_add(1, std::memory_order_release);
    dispatch_seq.notify_all();
}

void monitor_wait_for_dispatch()
{
    if (dispatching)
        return;
    // A read-modify-write, like the increment that starts a pass: one of the
    // two comes first on dispatch_seq. Either this one does, and that pass
    // reads the list (and every table) as changed before this call, or the
    // pass's does, and this call sees it running.
    const unsigned seen = dispatch_seq.fetch_add(0, std::memory_order_acq_rel);
    if ((seen & 1U) == 0)
        return;
    while (dispatch_seq.load(std::memory_order_acquire) == seen)
        dispatch_seq.wait(seen, std::memory_order_acquire);
}

void restart_all_service()
{
    // Cleared without event_lock, as this operation always has; the change
    // is still bracketed so that a walker re-reads what it saw meanwhile.
    {
        ListChange change;
        for (MonitorSlot& slot : event_list)
            slot.store({});
        event_num.store(0, std::memory_order_release);
    }
    restart_system_service();
    restart_hotplug_service();
}
