// The monitor list: every descriptor served by the main loop, with its handler.
#pragma once

#include <array>

using pfneventHandle = int (*)(void*);

struct _EventHandleRec {
    int fd;                 // valid entries have fd > 0
    pfneventHandle handle;  // return value is ignored by the loop
    void* para;
};
using EventHandleRec = _EventHandleRec;

inline constexpr int EVENT_LIST_MAX = 32;

int add_monitor_handle(int fd, int (*handle)(void*), void* para);
// Takes fd out of the list; the descriptor is not closed (the caller closes
// it, after monitor_wait_for_dispatch when a handler may still use its
// argument).
int remove_monitor_handle(int fd);
int set_non_block(int fd);
void restart_all_service();

#include <sys/select.h>

// One main-loop pass is split in two so that the walk can be exercised on its
// own. The caller holds the remote-screen socket lock around each call.
// Puts every listed descriptor into set and raises *max_fd to the highest.
void fill_monitor_set(fd_set* set, int* max_fd);
// Calls the handler of every listed descriptor that is in ready, re-reading
// the count after each call so a handler may add or remove entries.
void dispatch_monitor_handles(const fd_set* ready);

// Grace period for whatever a handler uses: returns once every dispatch pass
// that was running when it was called has ended, so a record that has left
// the list (or any table the handlers read) may then be freed. Bounded by one
// handler pass; returns at once on the main loop's own thread while it
// dispatches (a handler removing an entry does not wait for itself).
void monitor_wait_for_dispatch();
