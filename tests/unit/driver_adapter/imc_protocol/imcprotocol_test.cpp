// IMC transactions between two linked stacks: exchanges, retries, time-outs, refusals.
#include "common/imc_protocol/imcprotocol.h"

#include "support/adapter.h"

using namespace testsupport;
constexpr uint64_t T0 = ImcLink::T0;

TEST(ImcProtocol, RequestReplyAckAndEventCrossTheLinkAndARepeatedRequestGetsTheStoredReply)
{
    ImcLink link;
    ASSERT_EQ(link.a.send_request({0x10, 0x7E, 0x7D}), 0);
    const Bytes wire = link.b.take();
    EXPECT_EQ(wire, IMC_FRAMES[1].frame);  // sequence 1
    EXPECT_EQ(link.b.feed(wire, 1), 1);                 // a byte at a time
    EXPECT_EQ(link.b.requests, (std::vector<Bytes>{{0x10, 0x7E, 0x7D}}));
    EXPECT_EQ(IMC_Protocol_SendReply(link.b.last_request, wire.data(), 1), -26);  // already answered
    const Bytes reply = link.a.take();  // lost: the request comes again on a's tick
    link.a.tick_at(T0 + 150);
    EXPECT_TRUE(link.b.pump() == 1 && link.b.requests.size() == 1u);  // not handled again
    EXPECT_EQ(ImcLink::count("resend reply:seq=1 cmd=0x10"), 1);
    EXPECT_EQ(link.a.take(), reply);
    EXPECT_EQ(link.a.feed(reply, 3), 1);
    EXPECT_EQ(link.a.replies, (std::vector<Bytes>{{0x10, 0xAA}}));
    EXPECT_TRUE(link.a.transactions_in_use() == 0 && link.b.transactions_in_use() == 1);  // reply kept until acked
    EXPECT_TRUE(link.b.pump() == 1 && link.b.transactions_in_use() == 0);
    ASSERT_EQ(link.a.send_request({0x11}), 0);
    EXPECT_EQ(link.b.take()[8], 0x02);  // the next sequence number
    const Bytes event = {0x20, 0x7E, 0x00};
    EXPECT_EQ(IMC_Protocol_SendEvent(link.b.handle, event.size(), event.data()), 0);
    EXPECT_EQ(link.a.pump(), 1);
    EXPECT_EQ(link.a.events, std::vector<Bytes>{event});
    EXPECT_EQ(link.a.transactions_in_use(), 1);  // events take none
}

TEST(ImcProtocol, UnansweredRequestIsResentOnTheTicksUntilItsLimitAndReceivedOnesDroppedAfterTheMaximumWait)
{
    // Ticks {ms after the send, frames resent by it}; one less than a retry time after the last does nothing.
    const std::pair<IMC_Config_s, std::vector<std::pair<uint64_t, int>>> cases[] = {
        {IMC_FRONT_BOARD_CONFIG, {{0, 0}, {150, 1}, {299, 0}, {300, 0}}},
        // Every 10 ms, 3 retries: abandoned 40 ms after the send.
        {{10, 3, 1000, 10, 200, 200, 20}, {{0, 0}, {9, 0}, {10, 1}, {20, 1}, {29, 0}, {30, 1}, {40, 0}}},
    };
    for (const auto& [config, ticks] : cases) {
        SCOPED_TRACE(config.retry_time);
        ImcLink link(config);
        ASSERT_EQ(link.a.send_request({0x13}), 0);
        link.b.take();
        int resent = 0;
        for (const auto& [at, frames] : ticks) {
            link.a.tick_at(T0 + at);
            EXPECT_EQ(std::ranges::count(link.b.take(), 0x7E), frames) << "tick at " << at;  // escaped elsewhere
            EXPECT_EQ(ImcPeer::noreplies, at == ticks.back().first ? 1 : 0);
            resent += frames;
        }
        EXPECT_EQ(ImcLink::count("request resend!request cmd is 0x13"), resent);
        EXPECT_EQ(ImcLink::count("request resend timeout!request cmd is 0x13"), 1);
        EXPECT_EQ(link.a.transactions_in_use(), 0);
    }

    // Received requests: {ms after arrival, in use}; the maximum wait itself is not more, 1001 is too soon a tick.
    const std::pair<uint64_t, int> ticks[] = {{850, 1}, {1000, 1}, {1001, 1}, {1151, 0}};
    for (const bool answered : {false, true}) {
        SCOPED_TRACE(answered ? "reply sent, ack lost" : "never answered");
        ImcLink link;
        link.b.answer_requests = answered;
        link.a.send_request({0x14});
        link.b.pump();
        link.a.take();
        for (const auto& [at, in_use] : ticks) {
            link.b.tick_at(T0 + at);
            EXPECT_EQ(link.b.transactions_in_use(), in_use) << "tick at " << at;
        }
        EXPECT_EQ(ImcLink::count("max_wait_Time happen, transaction removed!"), 1);
    }
}

TEST(ImcProtocol, ExhaustedPoolAndTransactionsAreRefusedWithTheirCodes)
{
    ImcLink blocks(IMC_FRONT_BOARD_CONFIG, {150, 1, 1000, 3, 200, 200, 2});  // 3 transactions, 2 blocks
    blocks.b.answer_requests = false;
    blocks.a.send_request({0x01});
    blocks.b.pump();  // one block held, one free: none left for the frame
    EXPECT_EQ(blocks.b.send_request({0x09}), -12);
    EXPECT_EQ(ImcLink::count("no more  mem pool for alloc, abort!\n"), 1);
    blocks.a.send_request({0x02});
    blocks.b.pump();  // both blocks held
    EXPECT_EQ(blocks.b.send_request({0x09}), -12);
    EXPECT_EQ(ImcLink::count("****no more  mem pool for alloc, abort!****"), 1);
    EXPECT_EQ(IMC_Protocol_SendReply(blocks.b.last_request, blocks.b.requests[0].data(), 1), -12);
    EXPECT_EQ(ImcLink::count("*****no more  mem pool for send reply, abort!****"), 1);
    blocks.a.send_request({0x03});
    EXPECT_EQ(blocks.b.pump(), 1);
    EXPECT_EQ(ImcLink::count("no more  mem pool for parse alloc, abort!"), 1);
    EXPECT_EQ(blocks.b.transactions_in_use(), 2);

    ImcLink few({150, 1, 1000, 2, 200, 200, 20}, {150, 1, 1000, 1, 200, 200, 20});  // 2 and 1 transactions
    few.b.answer_requests = false;
    EXPECT_TRUE(few.a.send_request({0x01}) == 0 && few.a.send_request({0x02}) == 0);
    EXPECT_EQ(few.b.pump(), 2);
    EXPECT_EQ(ImcLink::count("unable to alloc transaction space"), 1);
    EXPECT_EQ(few.a.send_request({0x03}), -17);
    EXPECT_EQ(ImcLink::count("!!!!no more transaction mem for alloc, abort!!!!"), 1);
}

TEST(ImcProtocol, ParseAndSendRefuseWhatTheyCannotTakeWithTheirCodes)
{
    const Bytes too_long = Bytes{0x01, 0x01, 0x00, 0x05, 0x00, 195} + Bytes(195, 0x33);
    const std::tuple<Bytes, int, const char*> cases[] = {
        {{0x01, 0x01, 0x00, 0x05, 0x00}, -27, "input error:data addr=0x"},  // shorter than a header
        {{0x02, 0x01, 0x00, 0x05, 0x00, 0x00}, -1, "invalid version:2\n"},
        {{0x01, 0x04, 0x00, 0x05, 0x00, 0x00}, -3, "unkown class:4 \n "},
        {{0x01, 0x01, 0x00, 0x05, 0x00, 0x02, 0x10}, -4, "len  is less than msg len\n "},
        {{0x01, 0x02, 0x00, 0x09, 0x00, 0x00}, -9, "msg header info:class=2 seq=9 length=0"},  // reply to nothing
        {{0x01, 0x03, 0x00, 0x09, 0x00, 0x00}, -9, "this is a reply ack"},
        {too_long, -19, ""},  // longer than a pool block
    };
    ImcLink link;
    for (const auto& [message, rc, log] : cases) {
        SCOPED_TRACE(log);
        // An exact-size heap copy: a read beyond it is caught by the sanitizer.
        const auto copy = std::make_unique<uint8_t[]>(message.size());
        std::ranges::copy(message, copy.get());
        ImcLink::take();
        EXPECT_EQ(IMC_Protocol_Parse(link.a.handle, copy.get(), message.size()), rc);
        EXPECT_TRUE(*log == '\0' || ImcLink::count(log) == 1);
        EXPECT_TRUE(link.a.transactions_in_use() == 0 && link.a.requests.empty());
    }

    const Bytes payload(195, 0x01);
    EXPECT_EQ(link.a.send_request(payload), -12);            // longer than a package
    EXPECT_EQ(link.a.send_request(Bytes(194, 0x01)), -19);  // its frame is
    EXPECT_EQ(IMC_Protocol_SendEvent(link.a.handle, 195, payload.data()), -12);
    link.a.short_write = 5;
    EXPECT_EQ(IMC_Protocol_SendEvent(link.a.handle, 1, payload.data()), -18);
    EXPECT_TRUE(link.a.send_request({0x01}) == 0 && link.a.transactions_in_use() == 1);  // left to the retries
    EXPECT_EQ(IMC_Protocol_SendReply(nullptr, payload.data(), 1), -27);
}
