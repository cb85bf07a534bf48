#include "common/imc_protocol/imcprotocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>

#include "support/imc_peer.h"

namespace {

using testsupport::Bytes;
using testsupport::ImcLink;
using testsupport::ImcPeer;
using testsupport::ImcWorld;

constexpr uint64_t T0 = 1000;  // the world's start time

int frames_in(const Bytes& wire)  // escaping leaves 0x7E only as a start flag
{
    return static_cast<int>(std::count(wire.begin(), wire.end(), 0x7E));
}

IMC_Config_s config_with(uint32_t transactions, uint32_t blocks)
{
    IMC_Config_s c = IMC_FRONT_BOARD_CONFIG;
    c.max_transaction_num = transactions;
    c.mem_block_num = blocks;
    return c;
}

class ImcProtocol : public testing::Test {
protected:
    ImcWorld world{T0};
    ImcLink link;
    ImcPeer& a = *link.a;
    ImcPeer& b = *link.b;
};

TEST_F(ImcProtocol, RequestReplyAckAndEventCrossTheLink)
{
    ASSERT_EQ(a.send_request({0x10, 0x7E, 0x7D}), 0);
    const Bytes wire = b.take();
    // Version 1, request, sequence 1, length 3, escaped payload, CRC.
    EXPECT_EQ(wire, (Bytes{0x00, 0x7E, 0x00, 0x00, 0x09, 0x01, 0x01, 0x00, 0x01, 0x00, 0x03, 0x10, 0x7D,
                           0x5E, 0x7D, 0x5D, 0xE4, 0x9F}));
    EXPECT_EQ(b.feed(wire, 1), 1);  // a byte at a time
    EXPECT_EQ(b.requests, (std::vector<Bytes>{{0x10, 0x7E, 0x7D}}));
    EXPECT_EQ(a.pump(3), 1);
    EXPECT_EQ(a.replies, (std::vector<Bytes>{{0x10, 0xAA}}));
    EXPECT_EQ(std::make_pair(a.transactions_in_use(), b.transactions_in_use()), std::make_pair(0, 1));  // reply kept until acked
    EXPECT_TRUE(b.pump() == 1 && b.transactions_in_use() == 0);
    ASSERT_EQ(a.send_request({0x11}), 0);
    EXPECT_EQ(b.take()[8], 0x02);  // the next sequence number
    const std::array<uint8_t, 3> event = {0x20, 0x7E, 0x00};
    EXPECT_EQ(IMC_Protocol_SendEvent(b.handle, event.size(), event.data()), 0);
    EXPECT_EQ(a.pump(), 1);
    EXPECT_EQ(a.events, (std::vector<Bytes>{{0x20, 0x7E, 0x00}}));
    EXPECT_EQ(a.transactions_in_use(), 1);  // events take none
}

TEST_F(ImcProtocol, RepeatedRequestIsAnsweredFromTheStoredReply)
{
    ASSERT_EQ(a.send_request({0x12}), 0);
    b.pump();
    a.take();  // the reply is lost
    ImcWorld::set_time(T0 + 150);
    IMC_Protocol_TimeTick(a.handle);
    EXPECT_TRUE(b.pump() == 1 && b.requests.size() == 1u);  // not handled again
    EXPECT_EQ(ImcWorld::logged("resend reply:seq=1 cmd=0x12"), 1);
    EXPECT_EQ(a.pump(), 1);
    EXPECT_EQ(a.replies, (std::vector<Bytes>{{0x12, 0xAA}}));
    b.pump();
    EXPECT_EQ(a.transactions_in_use() + b.transactions_in_use(), 0);
}

TEST(ImcProtocolTicks, UnansweredRequestIsResentOnTheTicksUntilItsLimit)
{
    IMC_Config_s three = IMC_FRONT_BOARD_CONFIG;
    three.retry_time = 10;
    three.max_retry_count = 3;  // abandoned 40 ms after it was sent
    struct Case {
        const char* name;
        IMC_Config_s config;
        std::vector<std::pair<uint64_t, int>> ticks;  // ms after the send, frames resent by that tick
    } cases[] = {
        // Ticks less than a retry time after the last one do nothing.
        {"front board", IMC_FRONT_BOARD_CONFIG, {{0, 0}, {150, 1}, {299, 0}, {300, 0}}},
        {"three retries", three, {{0, 0}, {9, 0}, {10, 1}, {20, 1}, {29, 0}, {30, 1}, {40, 0}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ImcWorld world(T0);
        ImcLink link(c.config);
        ASSERT_EQ(link.a->send_request({0x13}), 0);
        link.b->take();
        int resent = 0;
        for (const auto& [at, frames] : c.ticks) {
            ImcWorld::set_time(T0 + at);
            IMC_Protocol_TimeTick(link.a->handle);
            EXPECT_EQ(frames_in(link.b->take()), frames) << "tick at " << at;
            EXPECT_EQ(ImcWorld::noreplies(), at == c.ticks.back().first ? 1 : 0);
            resent += frames;
        }
        EXPECT_EQ(ImcWorld::logged("request resend!request cmd is 0x13"), resent);
        EXPECT_TRUE(ImcWorld::logged("request resend timeout!request cmd is 0x13") == 1 && link.a->transactions_in_use() == 0);
    }
}

TEST(ImcProtocolTicks, ReceivedRequestsAreDroppedAfterTheMaximumWait)
{
    // {ms after arrival, transactions in use}: exactly the maximum wait is not
    // more than it; a tick within a retry time of the last does nothing.
    const std::pair<uint64_t, int> ticks[] = {{850, 1}, {1000, 1}, {1001, 1}, {1151, 0}};
    for (const bool answered : {false, true}) {
        SCOPED_TRACE(answered ? "reply sent, ack lost" : "never answered");
        ImcWorld world(T0);
        ImcLink link;
        link.b->answer_requests = answered;
        link.a->send_request({0x14});
        link.b->pump();
        link.a->take();
        for (const auto& [at, in_use] : ticks) {
            ImcWorld::set_time(T0 + at);
            IMC_Protocol_TimeTick(link.b->handle);
            EXPECT_EQ(link.b->transactions_in_use(), in_use) << "tick at " << at;
        }
        EXPECT_EQ(ImcWorld::logged("max_wait_Time happen, transaction removed!"), 1);
    }
}

TEST_F(ImcProtocol, ExhaustedPoolAndTransactionsAreRefusedWithTheirCodes)
{
    {
        ImcLink small(IMC_FRONT_BOARD_CONFIG, config_with(3, 2));
        ImcPeer& peer = *small.b;
        peer.answer_requests = false;
        small.a->send_request({0x01});
        peer.pump();  // one block held, one free: none left for the frame
        EXPECT_EQ(peer.send_request({0x09}), -12);
        EXPECT_EQ(ImcWorld::logged("no more  mem pool for alloc, abort!\n"), 1);
        small.a->send_request({0x02});
        peer.pump();  // both blocks held
        EXPECT_EQ(peer.send_request({0x09}), -12);
        EXPECT_EQ(ImcWorld::logged("****no more  mem pool for alloc, abort!****"), 1);
        const uint8_t answer = 0x02;
        EXPECT_EQ(IMC_Protocol_SendReply(peer.last_request, &answer, 1), -12);
        EXPECT_EQ(ImcWorld::logged("*****no more  mem pool for send reply, abort!****"), 1);
        small.a->send_request({0x03});
        EXPECT_EQ(peer.pump(), 1);
        EXPECT_EQ(ImcWorld::logged("no more  mem pool for parse alloc, abort!"), 1);
        EXPECT_EQ(peer.transactions_in_use(), 2);
    }
    {
        ImcLink small(config_with(2, 20), config_with(1, 20));
        small.b->answer_requests = false;
        EXPECT_EQ(small.a->send_request({0x01}), 0);
        EXPECT_EQ(small.a->send_request({0x02}), 0);
        EXPECT_EQ(small.b->pump(), 2);
        EXPECT_EQ(ImcWorld::logged("unable to alloc transaction space"), 1);
        EXPECT_EQ(small.a->send_request({0x03}), -17);
        EXPECT_EQ(ImcWorld::logged("!!!!no more transaction mem for alloc, abort!!!!"), 1);
    }
}

TEST_F(ImcProtocol, ParseRefusesMessagesItCannotTakeWithoutReadingBeyondThem)
{
    Bytes too_long = {0x01, 0x01, 0x00, 0x05, 0x00, 195};
    too_long.resize(6 + 195, 0x33);
    const struct {
        const char* name;
        Bytes message;
        int rc;
        const char* log;
    } cases[] = {
        {"shorter than a header", {0x01, 0x01, 0x00, 0x05, 0x00}, -27, "input error:data addr=0x"},
        {"version 2", {0x02, 0x01, 0x00, 0x05, 0x00, 0x00}, -1, "invalid version:2\n"},
        {"class 4", {0x01, 0x04, 0x00, 0x05, 0x00, 0x00}, -3, "unkown class:4 \n "},
        {"payload shorter than its length", {0x01, 0x01, 0x00, 0x05, 0x00, 0x02, 0x10}, -4,
         "len  is less than msg len\n "},
        {"reply to no request", {0x01, 0x02, 0x00, 0x09, 0x00, 0x00}, -9, "msg header info:class=2 seq=9 length=0"},
        {"reply-ack to no reply", {0x01, 0x03, 0x00, 0x09, 0x00, 0x00}, -9, "this is a reply ack"},
        {"request longer than a pool block", too_long, -19, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        // An exact-size heap copy: a read beyond it is caught by the sanitizer.
        const auto copy = std::make_unique<uint8_t[]>(c.message.size());
        std::copy(c.message.begin(), c.message.end(), copy.get());
        ImcWorld::clear_log();
        EXPECT_EQ(IMC_Protocol_Parse(a.handle, copy.get(), c.message.size()), c.rc);
        EXPECT_TRUE(c.log == nullptr || ImcWorld::logged(c.log) == 1);
        EXPECT_TRUE(a.transactions_in_use() == 0 && a.requests.empty());
    }
}

TEST_F(ImcProtocol, SendFunctionsReturnTheirCodes)
{
    const Bytes payload(195, 0x01);
    EXPECT_EQ(a.send_request(payload), -12);                 // longer than a package
    EXPECT_EQ(a.send_request(Bytes(194, 0x01)), -19);  // its frame is
    EXPECT_EQ(IMC_Protocol_SendEvent(a.handle, 195, payload.data()), -12);
    a.short_write = 5;
    EXPECT_EQ(IMC_Protocol_SendEvent(a.handle, 1, payload.data()), -18);
    EXPECT_EQ(a.send_request({0x01}), 0);  // left to the retries
    a.short_write = 0;
    b.take();
    EXPECT_EQ(a.transactions_in_use(), 1);
    a.send_request({0x15});
    b.pump();
    EXPECT_EQ(IMC_Protocol_SendReply(b.last_request, payload.data(), 1), -26);  // already answered
    EXPECT_EQ(IMC_Protocol_SendReply(nullptr, payload.data(), 1), -27);
}

}  // namespace
