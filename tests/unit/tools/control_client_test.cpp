// The control connection against a stand-in daemon: replies told from events, the fence, the monitor loop.
#include "client/control_client.h"

#include "client/monitor.h"
#include "support/unit_common.h"

namespace {

using tactord::input_event;

class ControlClient : public ::testing::Test {
protected:
    void SetUp() override
    {
        const int listener = unix_server_open("/ctl.sock");
        std::string error;
        conn_ = tools::ControlConnection::open(root_.at("/ctl.sock"), 0ms, error);
        ASSERT_TRUE(conn_) << error;
        daemon_ = unix_server_accept(listener);
        close(listener);
    }
    void TearDown() override { close(daemon_); }
    SystemMsg request()
    {
        SystemMsg m{};
        recv(daemon_, &m, sizeof m, MSG_WAITALL);
        return m;
    }
    template <typename T>
    void send(const T& rec) { ASSERT_EQ(write(daemon_, &rec, sizeof rec), static_cast<ssize_t>(sizeof rec)); }
    // The daemon answers the next request's fence only.
    std::thread fence_only() { return std::thread([this] { request(), send(request()); }); }

    testsupport::ScratchRoot root_;
    int daemon_ = -1;
    std::optional<tools::ControlConnection> conn_;
};

TEST_F(ControlClient, AReplyIsToldFromEventsAndTheFenceEndsTheExchange)
{
    std::thread peer([&] {
        SystemMsg reply = request(), fence = request();
        send(input_event{1700000000, 5, 1, 30, 1});  // a registered screen's events come first
        send(input_event{0, 0, 27, 0, 0});
        reply.data.ts_type = 7;
        send(reply);
        fence.data.nValue = MODE_CLONE;
        send(fence);
    });
    const auto answer = conn_->exchange(tools::make_request(TYPE_CHECK_TS_TYPE, 3));
    peer.join();
    ASSERT_TRUE(answer.ok && answer.reply);
    EXPECT_TRUE(answer.reply->data.ts_type == 7 && answer.mode == MODE_CLONE);
    std::thread quiet = fence_only();  // a request without a reply
    const auto plain = conn_->exchange(tools::make_request(TYPE_SET_CURSOR_TIME));
    quiet.join();
    EXPECT_TRUE(plain.ok && !plain.reply);
    shutdown(daemon_, SHUT_RDWR);  // gone mid-exchange: unanswered
    EXPECT_FALSE(conn_->exchange(tools::make_request(TYPE_MODE_GET), 1s).ok);
}

TEST_F(ControlClient, MonitorRegistersPrintsEachRecordUntilItsCountAndHintsAtAHeldScreen)
{
    std::thread peer([&] {
        EXPECT_EQ(request().type, TYPE_INPUT_INIT);
        SystemMsg fence = request();
        fence.data.nValue = MODE_EXTERN;
        send(fence);
        send(input_event{0, 0, 26, 0, 0});
        send(input_event{12, 34, 1, 30, 0});
        send(input_event{0, 0, 0, 0, 0});  // past the count
    });
    tools::MonitorOptions opts;
    opts.screen = 1;
    opts.count = 3;
    opts.with_time = true;
    EXPECT_EQ(printed([&](std::FILE* out) { EXPECT_EQ(tools::run_monitor(*conn_, opts, out), 0); }),
              "reply TYPE_MODE_GET: extern\n0.000000 focus gained\n12.000034 EV_KEY KEY_A release\n");
    peer.join();
    input_event left{1, 1, 1, 1, 1};  // the record past the count is still unread
    ASSERT_EQ(conn_->read_exact(&left, sizeof left, 1s), tools::ControlConnection::Read::ok);
    EXPECT_EQ(left.type, 0);

    // A registration the daemon ignored (the screen is held): only the fence answers; told once.
    std::thread held = fence_only();
    std::FILE* sink = std::fopen("/dev/null", "w");
    EXPECT_EQ(printed([&](std::FILE* said) {
                  opts = {};
                  opts.hint = said;
                  opts.hint_after = 50ms;
                  opts.duration = 300ms;
                  EXPECT_EQ(tools::run_monitor(*conn_, opts, sink), 0);
              }),
              "tactord-events: " + tools::screen_held_hint(0) + "\n");
    held.join();
    shutdown(daemon_, SHUT_RDWR);  // the daemon closing ends the loop with 1
    EXPECT_EQ(tools::run_monitor(*conn_, {}, sink), 1);
    std::fclose(sink);
}

}  // namespace
