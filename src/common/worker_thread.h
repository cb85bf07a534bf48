// Threads of the daemon's own: the signals the daemon catches are handled on
// the main thread only, so every worker starts with them blocked.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <array>

// SIGPIPE, SIGTTIN, SIGTTOU, SIGURG and SIGWINCH, in the order they are caught.
inline constexpr std::array<int, 5> CAUGHT_SIGNALS = {SIGPIPE, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH};

// Blocks (block true) or unblocks the caught signals on the calling thread;
// *saved, when given, receives the mask before the change.
void mask_caught_signals(bool block, sigset_t* saved = nullptr);

// pthread_create with the caught signals blocked in the new thread; the
// thread is detached. Returns pthread_create's result.
int start_worker_thread(void* (*entry)(void*), void* arg, pthread_t* tid = nullptr);
