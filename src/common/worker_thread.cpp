#include "common/worker_thread.h"

void mask_caught_signals(bool block, sigset_t* saved)
{
    sigset_t set;
    sigemptyset(&set);
    for (int sig : CAUGHT_SIGNALS)
        sigaddset(&set, sig);
    pthread_sigmask(block ? SIG_BLOCK : SIG_UNBLOCK, &set, saved);
}

int start_worker_thread(void* (*entry)(void*), void* arg, pthread_t* tid)
{
    // A new thread inherits its creator's mask: block around the creation and
    // give the creator its own mask back.
    sigset_t saved;
    mask_caught_signals(true, &saved);
    pthread_t thread;
    const int rc = pthread_create(&thread, nullptr, entry, arg);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    if (rc == 0) {
        pthread_detach(thread);
        if (tid != nullptr)
            *tid = thread;
    }
    return rc;
}
