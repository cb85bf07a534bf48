// The control connection against a stand-in daemon: fenced requests, replies among events, the monitor loop.
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

// A listening socket and the daemon's end of the one connection made to it.
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
    void SetUp() override
    {
        std::string error;
        conn_ = tools::ControlConnection::open(path_, 0ms, error);
        ASSERT_TRUE(conn_) << error;
        daemon_.accept_one();
    }
    // The daemon answers the next request's fence only.
    std::thread fence_only()
    {
        return std::thread([this] {
            daemon_.read_request();
            daemon_.send_record(daemon_.read_request());
        });
    }
    testsupport::ScratchRoot root_;
    const std::string path_ = root_.at("/ctl.sock");
    FakeDaemon daemon_{path_};
    std::optional<tools::ControlConnection> conn_;
};

TEST_F(ControlClient, AReplyIsToldFromEventsAndTheFenceEndsTheExchange)
{
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
    const auto answer = conn_->exchange(tools::make_request(TYPE_CHECK_TS_TYPE, 3));
    peer.join();
    ASSERT_TRUE(answer.ok && answer.reply);
    EXPECT_TRUE(answer.reply->data.ts_type == 7 && answer.mode == MODE_CLONE);
    std::thread quiet = fence_only();  // a request without a reply
    const auto plain = conn_->exchange(tools::make_request(TYPE_SET_CURSOR_TIME));
    quiet.join();
    EXPECT_TRUE(plain.ok && !plain.reply);
    daemon_.hang_up();  // gone mid-exchange: unanswered
    EXPECT_FALSE(conn_->exchange(tools::make_request(TYPE_MODE_GET), 1s).ok);
}

TEST_F(ControlClient, MonitorRegistersAndPrintsEachRecordUntilItsCount)
{
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
    EXPECT_EQ(tools::run_monitor(*conn_, opts, out), 0);
    std::fclose(out);
    peer.join();
    EXPECT_STREQ(text, "reply TYPE_MODE_GET: extern\n0.000000 focus gained\n12.000034 EV_KEY KEY_A release\n");
    std::free(text);
    tactord::input_event left{1, 1, 1, 1, 1};  // the record past the count is still unread
    ASSERT_EQ(conn_->read_exact(&left, sizeof left, 1s), tools::ControlConnection::Read::ok);
    EXPECT_EQ(left.type, 0);

    // A registration the daemon ignored (the screen is held): only the fence answers; told once.
    std::thread held = fence_only();
    std::FILE* said = open_memstream(&text, &len);
    opts = {};
    opts.hint = said;
    opts.hint_after = 50ms;
    opts.duration = 300ms;
    std::FILE* sink = std::fopen("/dev/null", "w");
    EXPECT_EQ(tools::run_monitor(*conn_, opts, sink), 0);
    held.join();
    std::fclose(said);
    EXPECT_EQ(std::string(text), "tactord-events: " + tools::screen_held_hint(0) + "\n");
    std::free(text);

    daemon_.hang_up();  // the daemon closing ends the loop with 1
    EXPECT_EQ(tools::run_monitor(*conn_, {}, sink), 1);
    std::fclose(sink);
}

}  // namespace
