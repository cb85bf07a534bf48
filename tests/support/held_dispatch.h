// One main-loop dispatch pass run on a thread of its own and held inside the
// event pipeline: lets a test remove or free what the pass is using while the
// pass is provably still running.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace testsupport {

class HeldDispatch {
public:
    // Dispatches fd (whose handler must reach ProcessEvdevEvent). Inside the
    // pipeline the pass waits for go(), pauses a little more and then calls
    // touch(), standing in for the rest of the pipeline's work.
    HeldDispatch(int fd, std::function<void()> touch);
    ~HeldDispatch();
    HeldDispatch(const HeldDispatch&) = delete;
    HeldDispatch& operator=(const HeldDispatch&) = delete;

    // Returns once the pass is inside the pipeline, then lets it go on.
    void go();
    // True once the pass has touched and left the pipeline.
    bool finished() const { return finished_.load(); }
    // Called by the pipeline hook on the pass's thread.
    void go_in();

private:
    std::function<void()> touch_;
    std::atomic<int> stage_{0};  // 1 = inside the pipeline, 2 = may go on
    std::atomic<bool> finished_{false};
    std::thread loop_;
};

}  // namespace testsupport
