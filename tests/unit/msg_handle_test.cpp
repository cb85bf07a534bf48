// The monitor list: refusals, its cap, removal order, dispatch order and its waits, and walks that
// race with writers.
#include "msg_handle.h"

#include "support/unit_common.h"

namespace {

std::vector<int> calls;
int record_call(void* para)
{
    calls.push_back(para != nullptr ? *static_cast<int*>(para) : 0);
    return 0;
}
int other_handler(void*) { return 1; }
int self_fd;

class MonitorList : public testing::Test {
protected:
    int make_fd(bool readable = true)
    {
        peers_.push_back(std::make_unique<testsupport::UnitPeer>());
        EXPECT_TRUE(!readable || peers_.back()->put("x", 1));
        return peers_.back()->daemon;
    }
    std::vector<int> listed() const
    {
        std::vector<int> out;
        for (int i = 0; i < event_num; ++i)
            out.push_back(monitor_entry(i).fd);
        return out;
    }
    std::vector<int> dispatch_ready()
    {
        calls.clear();
        EXPECT_GE(testsupport::serve_ready(), 0);
        return calls;
    }
    testsupport::LogCapture log;
    std::vector<std::unique_ptr<testsupport::UnitPeer>> peers_;
    int one = 1, two = 2, three = 3, four = 4;
};

TEST_F(MonitorList, AddRefusesBadArgumentsAndAFullListAndReplacesInPlace)
{
    std::vector<int> added = {make_fd(false), make_fd(false)};
    EXPECT_EQ(add_monitor_handle(0, record_call, &one), -1);
    EXPECT_EQ(add_monitor_handle(-4, record_call, &one), -1);
    EXPECT_EQ(add_monitor_handle(added[0], nullptr, &one), -1);
    EXPECT_EQ(remove_monitor_handle(0), -1);
    EXPECT_TRUE(log.count("add_fd_list para error\n") == 4 && event_num == 0);
    for (int fd : added)
        ASSERT_EQ(add_monitor_handle(fd, record_call, &one), 0);
    EXPECT_TRUE(fcntl(added[0], F_GETFL) & O_NONBLOCK);
    ASSERT_EQ(add_monitor_handle(added[0], other_handler, &two), 0);
    EXPECT_EQ(listed(), added);
    EXPECT_TRUE(monitor_entry(0).handle == &other_handler && monitor_entry(0).para == &two);
    while (added.size() < std::size_t{EVENT_LIST_MAX}) {
        added.push_back(make_fd(false));
        ASSERT_EQ(add_monitor_handle(added.back(), record_call, nullptr), 0);
    }
    EXPECT_EQ(add_monitor_handle(make_fd(false), record_call, nullptr), -1);
    EXPECT_EQ(add_monitor_handle(added[3], other_handler, nullptr), -1);
    EXPECT_EQ(log.count("list is full\n"), 2);
    EXPECT_EQ(listed(), added);
    EXPECT_EQ(monitor_entry(3).handle, &record_call);
}

// Dispatch calls ready entries in order; one moved into a removed one's place waits for the next pass.
TEST_F(MonitorList, RemovingKeepsOrderAndTheHighestDescriptorAndAMovedEntryWaitsForTheNextPass)
{
    const int a = make_fd(), b = make_fd(), c = make_fd();
    for (int fd : {a, b, c})
        add_monitor_handle(fd, record_call, nullptr);
    fd_set set;
    int max_fd = 0;
    fill_monitor_set(&set, &max_fd);
    EXPECT_TRUE(max_fd == c && FD_ISSET(c, &set));
    EXPECT_EQ(remove_monitor_handle(make_fd()), 0);  // not listed: nothing changes
    EXPECT_EQ(listed(), (std::vector<int>{a, b, c}));
    EXPECT_EQ(remove_monitor_handle(b), 0);
    EXPECT_EQ(listed(), (std::vector<int>{a, c}));
    EXPECT_TRUE(event_list[2].load().fd == 0 && event_list[2].load().handle == nullptr);
    EXPECT_NE(fcntl(b, F_GETFD), -1);  // the caller closes it
    for (int fd : {a, c, c})
        EXPECT_EQ(remove_monitor_handle(fd), 0);
    EXPECT_EQ(event_num, 0);
    fill_monitor_set(&set, &max_fd);
    EXPECT_TRUE(max_fd == c && !FD_ISSET(c, &set));  // the highest never shrinks

    self_fd = make_fd();
    add_monitor_handle(self_fd, [](void* p) { return record_call(p), remove_monitor_handle(self_fd); }, &one);
    add_monitor_handle(make_fd(), record_call, &two);
    add_monitor_handle(make_fd(false), record_call, &three);
    add_monitor_handle(make_fd(), record_call, &four);
    EXPECT_EQ(dispatch_ready(), (std::vector<int>{1, 4}));
    EXPECT_EQ(dispatch_ready(), (std::vector<int>{2, 4}));
}

TEST_F(MonitorList, RemoverWaitsForTheRunningPassButAHandlerNeverWaitsForItself)
{
    int fd = make_fd();
    add_monitor_handle(fd, [](void*) { return testsupport::HeldDispatch::hold(), 0; }, nullptr);
    {
        testsupport::HeldDispatch pass(fd, [] {});
        pass.go();
        remove_monitor_handle(fd);
        monitor_wait_for_dispatch();
        EXPECT_TRUE(pass.finished());
    }
    monitor_wait_for_dispatch();  // no pass running: returns at once
    fd = make_fd();
    static std::atomic<bool> done{false};
    add_monitor_handle(fd, [](void* p) {
        remove_monitor_handle(*static_cast<int*>(p));
        monitor_wait_for_dispatch();  // must not wait for its own pass
        return done.store(true), 0;
    }, &fd);
    EXPECT_EQ(dispatch_ready(), std::vector<int>{});
    EXPECT_TRUE(done.load());
}

// Handlers that check their own kind of argument.
struct Tagged {
    char tag;
};
std::atomic<int> mismatches{0};
template <char Tag>
int expects(void* p)
{
    mismatches += static_cast<Tagged*>(p)->tag != Tag;
    return 0;
}

TEST_F(MonitorList, AWalkNeverPairsOneEntrysDescriptorWithAnothersHandlerOrArgument)
{
    static Tagged a{'a'}, b{'b'};
    std::vector<int> fds;
    fd_set all;
    FD_ZERO(&all);
    for (int i = 0; i < 8; ++i) {
        fds.push_back(make_fd());
        FD_SET(fds.back(), &all);
    }
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop.load()) {
            for (std::size_t i = 0; i < fds.size(); ++i)
                add_monitor_handle(fds[i], i % 2 ? expects<'b'> : expects<'a'>, i % 2 ? &b : &a);
            for (int fd : fds)  // from the front: every later entry shifts down
                remove_monitor_handle(fd);
        }
    });
    for (int pass = 0; pass < 100000; ++pass)
        dispatch_monitor_handles(&all);
    stop.store(true);
    writer.join();
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
