// A recursive mutex that hands itself to waiting threads in the order they
// asked for it.
//
// The main loop holds the loop lock for every dispatch and takes it again a
// few microseconds after it let go. With an ordinary mutex the thread that
// has just released it usually wins the next round, so a thread that waits
// for it (the remote-screen link registering or dropping its socket, the
// cursor timer announcing a hidden cursor) can wait for minutes while input
// flows. This one queues every thread that does not already own it behind a
// ticket: once a waiter has drawn its ticket, the main loop gets the lock
// back only after that waiter had its turn.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

class FifoRecursiveMutex {
public:
    FifoRecursiveMutex() = default;
    FifoRecursiveMutex(const FifoRecursiveMutex&) = delete;
    FifoRecursiveMutex& operator=(const FifoRecursiveMutex&) = delete;

    // BasicLockable, so std::lock_guard and std::unique_lock take it.
    void lock();
    void unlock();
    // True when the calling thread owns the lock (at any depth).
    bool owned_by_caller();
    // Threads queued for the lock, its holder not counted.
    unsigned long waiting();

private:
    std::mutex state_;  // guards every member below
    std::condition_variable turn_;
    unsigned long next_ticket_ = 0;  // the ticket the next newcomer draws
    unsigned long serving_ = 0;      // the ticket whose holder may take the lock
    std::thread::id owner_{};
    unsigned depth_ = 0;  // recursion depth of owner_
};
