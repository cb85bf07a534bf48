// The send path to clients: a socket that stays full is remembered and its
// records dropped without waiting, the episode ends when it drains, and a
// client full for two seconds (or whose stream a cut record spoilt) is
// handed to the drop. The loop lock the path runs under is first come,
// first served.
#include "common/client_send.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "common/fifo_mutex.h"
#include "support/log_capture.h"

namespace {

struct FullPair {
    int daemon = -1;
    int peer = -1;
    FullPair()
    {
        int sv[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0)
            return;
        daemon = sv[0];
        peer = sv[1];
        fcntl(daemon, F_SETFL, O_NONBLOCK);
        const char block[4096] = {};
        while (send(daemon, block, sizeof block, MSG_DONTWAIT) > 0) {
        }
    }
    ~FullPair()
    {
        client_send_forget(daemon);
        close(daemon);
        close(peer);
    }
    void drain() const
    {
        char buf[4096];
        while (recv(peer, buf, sizeof buf, MSG_DONTWAIT) > 0) {
        }
    }
};

std::vector<int> dropped;
void note_drop(int fd)
{
    dropped.push_back(fd);
}

const char kRecord[16] = "record";

TEST(ClientSend, AFullSocketIsRememberedItsRecordsDroppedAndTheEpisodeEndsWhenItDrains)
{
    testsupport::LogCapture log;
    FullPair p;
    EXPECT_EQ(client_send(p.daemon, kRecord, 16), -1);  // waits its bound once
    EXPECT_TRUE(client_send_stalled(p.daemon));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(client_send(p.daemon, kRecord, 16), -1);  // dropped at once
    EXPECT_EQ(log.count("send error, errno is EAGAIN > 11\n "), 1);
    dropped.clear();
    EXPECT_GT(client_send_housekeeping(note_drop), 0);  // still full: a decision is pending
    EXPECT_TRUE(dropped.empty());
    p.drain();
    EXPECT_EQ(client_send_housekeeping(note_drop), -1);
    EXPECT_FALSE(client_send_stalled(p.daemon));
    EXPECT_TRUE(log.has("client " + std::to_string(p.daemon) + " reads again, 4 records were dropped\n"));
    EXPECT_EQ(client_send(p.daemon, kRecord, 16), 16);
}

TEST(ClientSend, AClientFullForTwoSecondsIsDropped)
{
    testsupport::LogCapture log;
    FullPair p;
    client_send(p.daemon, kRecord, 16);
    dropped.clear();
    std::this_thread::sleep_for(std::chrono::milliseconds(CLIENT_STALL_DROP_MS + 100));
    client_send_housekeeping(note_drop);
    EXPECT_EQ(dropped, std::vector<int>{p.daemon});
    EXPECT_FALSE(client_send_stalled(p.daemon));
}

TEST(FifoRecursiveMutex, AThreadThatRetakesTheLockQueuesBehindTheOneWaiting)
{
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
