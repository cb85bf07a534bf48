#include "common/fifo_mutex.h"

void FifoRecursiveMutex::lock()
{
    const std::thread::id self = std::this_thread::get_id();
    std::unique_lock<std::mutex> guard(state_);
    if (depth_ != 0 && owner_ == self) {
        ++depth_;
        return;
    }
    const unsigned long ticket = next_ticket_++;
    turn_.wait(guard, [&] { return depth_ == 0 && serving_ == ticket; });
    owner_ = self;
    depth_ = 1;
}

void FifoRecursiveMutex::unlock()
{
    std::lock_guard<std::mutex> guard(state_);
    if (depth_ == 0 || owner_ != std::this_thread::get_id())
        return;  // not ours: a programming error, never a release of another thread's lock
    if (--depth_ != 0)
        return;
    owner_ = std::thread::id{};
    ++serving_;
    turn_.notify_all();
}

bool FifoRecursiveMutex::owned_by_caller()
{
    std::lock_guard<std::mutex> guard(state_);
    return depth_ != 0 && owner_ == std::this_thread::get_id();
}

unsigned long FifoRecursiveMutex::waiting()
{
    std::lock_guard<std::mutex> guard(state_);
    return next_ticket_ - serving_ - (depth_ != 0 ? 1 : 0);
}
