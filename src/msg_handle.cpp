#include "msg_handle.h"

#include <fcntl.h>

#include <mutex>

#include "arm/hot_plug.h"
#include "common/log.h"
#include "msg_handle_internal.h"

std::array<MonitorSlot, EVENT_LIST_MAX> event_list{};
std::atomic<int> event_num{0};

EventHandleRec MonitorSlot::load() const
{
    return {fd.load(std::memory_order_relaxed), handle.load(std::memory_order_relaxed),
            para.load(std::memory_order_relaxed)};
}

void MonitorSlot::store(const EventHandleRec& rec)
{
    // Handler and argument first, descriptor last: a walker that sees the new
    // descriptor also sees the handler stored for it.
    handle.store(rec.handle, std::memory_order_relaxed);
    para.store(rec.para, std::memory_order_relaxed);
    fd.store(rec.fd, std::memory_order_release);
}

namespace {
// Serialises add_monitor_handle and remove_monitor_handle against each other.
// The main loop's walk does not take it (it runs under the remote-screen
// socket lock); appends and shifts keep that walk safe enough: at worst one
// entry is skipped or visited twice in a pass.
std::mutex event_lock;
}  // namespace

int set_non_block(int fd)
{
    int flags = fcntl(fd, F_GETFL);
    if (flags & O_NONBLOCK)
        return 0;
    return fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

int add_monitor_handle(int fd, int (*handle)(void*), void* para)
{
    if (handle == nullptr || fd <= 0) {
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

    std::lock_guard<std::mutex> guard(event_lock);
    const int n = event_num.load(std::memory_order_relaxed);
    for (int i = 0; i < n; ++i) {
        if (event_list[i].fd.load(std::memory_order_relaxed) == fd) {
            event_list[i].store({fd, handle, para});
            return 0;
        }
    }
    // A concurrent add may have filled the list since the check above.
    if (n >= EVENT_LIST_MAX) {
        TLOG(LEVEL_ERROR, "list is full\n");
        return -1;
    }
    event_list[n].store({fd, handle, para});
    event_num.store(n + 1, std::memory_order_release);
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
    const int n = event_num.load(std::memory_order_acquire);
    for (int i = 0; i < n && i < EVENT_LIST_MAX; ++i) {
        const int fd = event_list[i].fd.load(std::memory_order_acquire);
        if (fd <= 0 || fd >= FD_SETSIZE)
            continue;
        FD_SET(fd, set);
        if (fd > *max_fd)
            *max_fd = fd;
    }
}

void dispatch_monitor_handles(const fd_set* ready)
{
    for (int i = 0; i < event_num.load(std::memory_order_acquire) && i < EVENT_LIST_MAX; ++i) {
        const EventHandleRec rec = event_list[i].load();
        if (rec.fd > 0 && rec.fd < FD_SETSIZE && FD_ISSET(rec.fd, ready) && rec.handle != nullptr)
            rec.handle(rec.para);
    }
}

void restart_all_service()
{
    // Cleared without event_lock, as this operation always has.
    for (MonitorSlot& slot : event_list)
        slot.store({});
    event_num.store(0, std::memory_order_release);
    // restart_system_service() of the control socket is called here once that module exists.
    restart_hotplug_service();
}
