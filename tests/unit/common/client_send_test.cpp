// The send path to clients: a full socket is remembered and its records dropped without waiting
// until it drains (the drop after two seconds: the fault drills); the loop lock the path runs
// under is first come, first served.
#include "common/client_send.h"

#include "common/fifo_mutex.h"
#include "support/unit_common.h"

namespace {

struct FullPair : testsupport::UnitPeer {
    FullPair() : UnitPeer(O_NONBLOCK)
    {
        const char block[4096] = {};
        while (send(daemon, block, sizeof block, MSG_DONTWAIT) > 0) {
        }
    }
    ~FullPair() { client_send_forget(daemon); }
};

std::vector<int> dropped;
void note_drop(int fd) { dropped.push_back(fd); }
const char kRecord[16] = "record";

TEST(ClientSend, AFullSocketIsRememberedDroppedUntilItDrainsAndTheLoopLockIsFirstComeFirstServed)
{
    testsupport::LogCapture log;
    FullPair p;
    for (int i = 0; i < 4; ++i)  // the first waits its bound, the others are dropped at once
        EXPECT_EQ(client_send(p.daemon, kRecord, 16), -1);
    EXPECT_TRUE(client_send_stalled(p.daemon));
    EXPECT_EQ(log.count("send error, errno is EAGAIN > 11\n "), 1);
    dropped.clear();
    EXPECT_GT(client_send_housekeeping(note_drop), 0);  // still full: a decision is pending
    EXPECT_TRUE(dropped.empty());
    p.drain();
    EXPECT_EQ(client_send_housekeeping(note_drop), -1);
    EXPECT_FALSE(client_send_stalled(p.daemon));
    EXPECT_TRUE(log.has("client " + std::to_string(p.daemon) + " reads again, 4 records were dropped\n"));
    EXPECT_EQ(client_send(p.daemon, kRecord, 16), 16);

    FifoRecursiveMutex m;
    std::atomic<bool> waiter_had_it{false};
    m.lock();
    m.lock();  // recursive
    std::thread waiter([&] {
        m.lock();
        waiter_had_it.store(true);
        m.unlock();
    });
    while (m.waiting() == 0)
        std::this_thread::yield();
    m.unlock();
    EXPECT_TRUE(m.owned_by_caller());
    m.unlock();
    m.lock();  // as the main loop does a moment after letting go
    EXPECT_TRUE(waiter_had_it.load());
    m.unlock();
    waiter.join();
}

}  // namespace
