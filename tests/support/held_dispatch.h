// One main-loop dispatch pass run on a thread of its own and held inside its
// handler: lets a test remove or free what the pass is using while the pass
// is provably still running.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace testsupport {

class HeldDispatch {
public:
    // Dispatches fd. Where the pass first reaches the event pipeline (or
    // hold(), for a handler of the test's own) it waits for go(), pauses a
    // little more and then calls touch(), standing in for the rest of the
    // handler's work.
    HeldDispatch(int fd, std::function<void()> touch);
    ~HeldDispatch();
    HeldDispatch(const HeldDispatch&) = delete;
    HeldDispatch& operator=(const HeldDispatch&) = delete;

    // Returns once the pass is held, then lets it go on.
    void go();
    // True once the pass has touched and gone on.
    bool finished() const { return finished_.load(); }
    // Holds the running pass; called on the pass's thread.
    static void hold();

private:
    std::function<void()> touch_;
    std::atomic<int> stage_{0};  // 1 = held, 2 = may go on
    std::atomic<bool> finished_{false};
    std::thread loop_;
};

}  // namespace testsupport
