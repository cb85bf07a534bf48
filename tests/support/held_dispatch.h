// One main-loop dispatch pass on a thread of its own, held inside its handler: a test removes or
// frees what the pass uses while the pass provably still runs.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace testsupport {

class HeldDispatch {
public:
    // Dispatches fd; where the pass first reaches the event pipeline (or hold(), in a handler of
    // the test's own) it waits for go(), pauses a little and calls touch() for the rest of the
    // handler's work.
    HeldDispatch(int fd, std::function<void()> touch);
    ~HeldDispatch();
    HeldDispatch(const HeldDispatch&) = delete;
    HeldDispatch& operator=(const HeldDispatch&) = delete;

    void go();  // returns once the pass is held, then lets it go on
    bool finished() const { return finished_.load(); }
    static void hold();

private:
    std::function<void()> touch_;
    std::atomic<int> stage_{0};  // 1 = held, 2 = may go on
    std::atomic<bool> finished_{false};
    std::thread loop_;
};

// One main-loop pass on the calling thread: waits up to timeout_ms for a listed descriptor, then
// dispatches the ready ones; select's result.
int serve_ready(int timeout_ms = 0);

}  // namespace testsupport
