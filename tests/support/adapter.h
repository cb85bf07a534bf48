// Shared by the adapter's and OS layer's unit tests: headers, adapter log, known IMC frames, linked IMC stacks.
#pragma once

#include <arpa/inet.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <latch>
#include <mutex>
#include <set>
#include <utility>

#include "common/imc_protocol/imc_linux.h"
#include "common/imc_protocol/imcprotocol_internal.h"
#include "common/imc_protocol/platform_internal.h"
#include "common/send_log_internal.h"
#include "support/remote_link.h"
#include "support/scanner.h"  // Bytes joined with +
#include "support/unit_common.h"

namespace testsupport {

// Messages and their frames byte for byte: lead-in, flag, marker, length, message and CRC, escaped.
inline const struct {
    const char* name;
    Bytes message, frame;
} IMC_FRAMES[] = {
    {"plain event", {0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0xAA},
     {0x00, 0x7E, 0x00, 0x00, 0x07, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0xAA, 0xFF, 0xD2}},
    {"flag and escape in the payload", {0x01, 0x01, 0x00, 0x01, 0x00, 0x03, 0x10, 0x7E, 0x7D},
     {0x00, 0x7E, 0x00, 0x00, 0x09, 0x01, 0x01, 0x00, 0x01, 0x00, 0x03, 0x10, 0x7D, 0x5E, 0x7D, 0x5D, 0xE4, 0x9F}},
    {"flag and escape in the sequence", {0x01, 0x03, 0x7E, 0x7D, 0x00, 0x00},
     {0x00, 0x7E, 0x00, 0x00, 0x06, 0x01, 0x03, 0x7D, 0x5E, 0x7D, 0x5D, 0x00, 0x00, 0x9A, 0x37}},
    {"escape in the CRC's high byte", {0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x4C},
     {0x00, 0x7E, 0x00, 0x00, 0x07, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x4C, 0x7D, 0x5D, 0xEA}},
    {"flag in the CRC's high byte", {0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x7F},
     {0x00, 0x7E, 0x00, 0x00, 0x07, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x7F, 0x7D, 0x5E, 0xF2}},
    {"escape in the CRC's low byte", {0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x8F},
     {0x00, 0x7E, 0x00, 0x00, 0x07, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x8F, 0x89, 0x7D, 0x5D}},
};

// While it lives the adapter's log lines (level, text) are kept here instead of sent.
struct AdapterLog {
    AdapterLog()
    {
        take();
        send_log_set_sink([](int level, const char* text) {
            std::lock_guard<std::mutex> guard(lock);
            lines.emplace_back(level, text);
        });
    }
    ~AdapterLog() { send_log_set_sink(nullptr); }
    static std::vector<std::pair<int, std::string>> take()  // the lines so far, then forgotten
    {
        std::lock_guard<std::mutex> guard(lock);
        return std::exchange(lines, {});
    }
    static int count(const std::string& part, int level = -1)  // lines holding part (at that level)
    {
        std::lock_guard<std::mutex> guard(lock);
        return static_cast<int>(std::ranges::count_if(lines, [&](const auto& l) {
            return (level < 0 || l.first == level) && l.second.find(part) != std::string::npos;
        }));
    }
    static inline std::mutex lock;  // guards lines
    static inline std::vector<std::pair<int, std::string>> lines;
};

// One end of a link: its stack and what its handlers saw; requests are answered {command, 0xAA}.
struct ImcPeer {
    ImcPeer(const IMC_Config_s& config, ImcPeer* peer) : other(peer)
    {
        const IMC_Lock_Ops_s ops = IMC_Linux_Lock_Ops(&locks);
        const IMC_Write_Func write = [](void* self, const uint8_t* data, uint32_t len) {
            ImcPeer& p = of(self);
            const uint32_t n = p.short_write > 0 ? std::min(len, p.short_write) : len;
            p.other->inbox.insert(p.other->inbox.end(), data, data + n);
            return static_cast<int>(n);
        };
        const IMC_Event_Handler on_event = [](void* self, const uint8_t* payload, uint16_t len) {
            of(self).events.emplace_back(payload, payload + len);
            return 0;
        };
        const IMC_Request_Handler on_request = [](IMC_Transaction_s* t, void* self, const uint8_t* data, uint16_t len) {
            of(self).requests.emplace_back(data, data + len);
            of(self).last_request = t;
            const uint8_t answer[] = {len > 0 ? data[0] : uint8_t{0}, 0xAA};
            if (of(self).answer_requests)
                IMC_Protocol_SendReply(t, answer, sizeof(answer));
        };
        handle = Stack_Init(write, on_event, on_request, &config, &ops);
        handle->private_data = this;
        IMC_Link_Reader_Init(&reader);
    }
    ~ImcPeer() { Stack_Release(handle); }
    // Through the link reader in pieces of at most `piece` bytes; returns the messages parsed.
    int feed(const Bytes& bytes, size_t piece = 4096)
    {
        int messages = 0;
        for (size_t at = 0; at < bytes.size(); at += piece)
            messages += IMC_Link_Reader_Feed(&reader, handle, bytes.data() + at,
                                             static_cast<uint32_t>(std::min(piece, bytes.size() - at)));
        return messages;
    }
    int pump(size_t piece = 4096) { return feed(take(), piece); }
    Bytes take() { return std::exchange(inbox, {}); }  // what the other end wrote, unread
    int send_request(const Bytes& data)
    {
        const IMC_Reply_Handler on_reply = [](void* self, const uint8_t* payload, uint16_t len) {
            of(self).replies.emplace_back(payload, payload + len);
        };
        return IMC_Protocol_SendRequest(handle, data.data(), static_cast<uint32_t>(data.size()), on_reply,
                                        [] { ++noreplies; });
    }
    int transactions_in_use() const
    {
        const IMC_Stack_s& s = *handle->stack_addr;
        return static_cast<int>(std::count_if(s.transactionPtr, s.transactionPtr + s.transaction_num,
                                              [](const IMC_Transaction_s& t) { return t.in_use; }));
    }
    void tick_at(uint64_t ms)  // sets the clock, then ticks this stack
    {
        now_ms = ms;
        IMC_Protocol_TimeTick(handle);
    }
    static ImcPeer& of(void* private_data) { return *static_cast<ImcPeer*>(private_data); }

    IMC_Linux_Locks locks;
    IMC_Stack_Handle_s* handle = nullptr;
    IMC_Link_Reader reader{};
    ImcPeer* other = nullptr;
    Bytes inbox;
    bool answer_requests = true;  // or hold the transactions without an answer
    uint32_t short_write = 0;  // when > 0, writes stop after this many bytes
    std::vector<Bytes> events, requests, replies;
    IMC_Transaction_s* last_request = nullptr;
    static inline uint64_t now_ms = 0;  // the stacks' clock
    static inline int noreplies = 0;    // no-reply handler calls so far
};

// While it lives the stacks read ImcPeer's clock, from T0 ms on.
struct ImcLink : AdapterLog {
    static constexpr uint64_t T0 = 1000;
    explicit ImcLink(const IMC_Config_s& config_a = IMC_FRONT_BOARD_CONFIG,
                     const IMC_Config_s& config_b = IMC_FRONT_BOARD_CONFIG)
        : a(config_a, &b), b(config_b, &a)
    {
        ImcPeer::now_ms = T0;
        ImcPeer::noreplies = 0;
        IMC_Platform_Set_Clock([](uint64_t* now) {
            *now = ImcPeer::now_ms;
            return 0;
        });
    }
    ~ImcLink() { IMC_Platform_Set_Clock(nullptr); }
    ImcPeer a, b;
};

}  // namespace testsupport
