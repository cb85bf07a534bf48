// Two IMC stacks talking over a socket pair in one process, under a clock
// the test sets, with the adapter's log lines kept.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/imc_protocol/imc_linux.h"

namespace testsupport {

using Bytes = std::vector<uint8_t>;

// While it lives the IMC stacks read a clock the test sets (ms) and the
// adapter's log lines are kept.
struct ImcWorld {
    explicit ImcWorld(uint64_t start_ms = 1000);
    ~ImcWorld();
    static void set_time(uint64_t ms) { now_ms = ms; }
    static int noreplies() { return noreply_calls; }  // no-reply handler calls so far
    static int logged(const std::string& part);       // kept lines containing part
    static void clear_log();

    static inline std::atomic<uint64_t> now_ms{0};
    static inline std::atomic<int> noreply_calls{0};
};

// One end of the link: its stack (private_data = this) and what its handlers
// saw. Requests are answered with {command, 0xAA} while answer_requests.
struct ImcPeer {
    ImcPeer(const IMC_Config_s& config, int fd);
    ~ImcPeer();
    // Feeds bytes to the link reader in pieces of at most `piece` bytes;
    // returns the messages handed to the stack.
    int feed(const Bytes& bytes, size_t piece = 4096);
    int pump(size_t piece = 4096) { return feed(take(), piece); }
    Bytes take();  // what waits on the socket, unread by the stack
    int send_request(const Bytes& data);
    int transactions_in_use() const;

    IMC_Linux_Locks locks;
    IMC_Stack_Handle_s* handle = nullptr;
    IMC_Link_Reader reader{};
    int fd;
    bool answer_requests = true;
    uint32_t short_write = 0;  // when > 0, writes stop after this many bytes
    std::vector<Bytes> events, requests, replies;
    IMC_Transaction_s* last_request = nullptr;
};

struct ImcLink {
    explicit ImcLink(const IMC_Config_s& config_a = IMC_FRONT_BOARD_CONFIG,
                     const IMC_Config_s& config_b = IMC_FRONT_BOARD_CONFIG);
    std::unique_ptr<ImcPeer> a, b;
};

}  // namespace testsupport
