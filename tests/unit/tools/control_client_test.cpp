// The control connection against a stand-in daemon: requests and their
// fence, replies told from a registered screen's events, and the display
// client's loop.
#include "client/control_client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <thread>

#include "client/monitor.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;

// A listening socket in a scratch root and the daemon's end of the one
// connection made to it.
class FakeDaemon {
public:
    explicit FakeDaemon(const std::string& path)
    {
        listener_ = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
        bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
        listen(listener_, 1);
    }
    ~FakeDaemon()
    {
        close(peer_);
        close(listener_);
    }
    void accept_one() { peer_ = accept(listener_, nullptr, nullptr); }
    SystemMsg read_request()
    {
        SystemMsg m{};
        for (std::size_t got = 0; got < sizeof m;) {
            const ssize_t n = read(peer_, reinterpret_cast<char*>(&m) + got, sizeof m - got);
            if (n <= 0)
                break;
            got += static_cast<std::size_t>(n);
        }
        return m;
    }
    template <typename T>
    void send_record(const T& rec) { ASSERT_EQ(write(peer_, &rec, sizeof rec), static_cast<ssize_t>(sizeof rec)); }
    void hang_up() { shutdown(peer_, SHUT_RDWR); }

private:
    int listener_ = -1;
    int peer_ = -1;
};

class ControlClient : public ::testing::Test {
protected:
    testsupport::ScratchRoot root_;
    const std::string path_ = root_.at("/ctl.sock");
    FakeDaemon daemon_{path_};
};

TEST_F(ControlClient, AReplyIsToldFromEventsAndTheFenceEndsTheExchange)
{
    std::string error;
    auto conn = tools::ControlConnection::open(path_, 0ms, error);
    ASSERT_TRUE(conn) << error;
    daemon_.accept_one();
    std::thread peer([&] {
        const SystemMsg req = daemon_.read_request();
        SystemMsg fence = daemon_.read_request();
        // A registered screen's events come first, then the reply.
        daemon_.send_record(tactord::input_event{1700000000, 5, 1, 30, 1});
        daemon_.send_record(tactord::input_event{0, 0, 27, 0, 0});
        SystemMsg reply = req;
        reply.data.ts_type = 7;
        daemon_.send_record(reply);
        fence.data.nValue = MODE_CLONE;
        daemon_.send_record(fence);
    });
    const auto answer = conn->exchange(tools::make_request(TYPE_CHECK_TS_TYPE, 3));
    peer.join();
    ASSERT_TRUE(answer.ok);
    ASSERT_TRUE(answer.reply);
    EXPECT_EQ(answer.reply->data.ts_type, 7);
    EXPECT_EQ(answer.mode, MODE_CLONE);

    // A request without a reply: only the fence answers.
    std::thread quiet([&] {
        daemon_.read_request();
        daemon_.send_record(daemon_.read_request());
    });
    const auto plain = conn->exchange(tools::make_request(TYPE_SET_CURSOR_TIME));
    quiet.join();
    EXPECT_TRUE(plain.ok);
    EXPECT_FALSE(plain.reply);

    // A daemon that goes away mid-exchange leaves it unanswered.
    daemon_.hang_up();
    EXPECT_FALSE(conn->exchange(tools::make_request(TYPE_MODE_GET), 1s).ok);
}

TEST_F(ControlClient, MonitorRegistersAndPrintsEachRecordUntilItsCount)
{
    std::string error;
    auto conn = tools::ControlConnection::open(path_, 0ms, error);
    ASSERT_TRUE(conn) << error;
    daemon_.accept_one();
    std::thread peer([&] {
        EXPECT_EQ(daemon_.read_request().type, TYPE_INPUT_INIT);
        SystemMsg fence = daemon_.read_request();
        fence.data.nValue = MODE_EXTERN;
        daemon_.send_record(fence);
        daemon_.send_record(tactord::input_event{0, 0, 26, 0, 0});
        daemon_.send_record(tactord::input_event{12, 34, 1, 30, 0});
        daemon_.send_record(tactord::input_event{0, 0, 0, 0, 0});  // past the count
    });
    char* text = nullptr;
    std::size_t len = 0;
    std::FILE* out = open_memstream(&text, &len);
    tools::MonitorOptions opts;
    opts.screen = 1;
    opts.count = 3;
    opts.with_time = true;
    EXPECT_EQ(tools::run_monitor(*conn, opts, out), 0);
    std::fclose(out);
    peer.join();
    EXPECT_STREQ(text, "reply TYPE_MODE_GET: extern\n0.000000 focus gained\n12.000034 EV_KEY KEY_A release\n");
    std::free(text);
    tactord::input_event left{1, 1, 1, 1, 1};  // the record past the count is still unread
    ASSERT_EQ(conn->read_exact(&left, sizeof left, 1s), tools::ControlConnection::Read::ok);
    EXPECT_EQ(left.type, 0);

    // A registration the daemon ignored (another client holds the screen):
    // nothing comes but the fence's reply, and the client is told once.
    std::thread held([&] {
        daemon_.read_request();
        daemon_.send_record(daemon_.read_request());
    });
    std::FILE* said = open_memstream(&text, &len);
    opts = {};
    opts.hint = said;
    opts.hint_after = 50ms;
    opts.duration = 300ms;
    std::FILE* sink = std::fopen("/dev/null", "w");
    EXPECT_EQ(tools::run_monitor(*conn, opts, sink), 0);
    held.join();
    std::fclose(said);
    EXPECT_EQ(std::string(text), "tactord-events: " + tools::screen_held_hint(0) + "\n");
    std::free(text);

    // The daemon closing the connection ends the loop with 1.
    daemon_.hang_up();
    EXPECT_EQ(tools::run_monitor(*conn, {}, sink), 1);
    std::fclose(sink);
}

}  // namespace
