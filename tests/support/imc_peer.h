// Two IMC stacks talking over a socket pair in one process, under a clock
// the test sets, with the adapter's log lines captured.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/imc_protocol/imc_linux.h"

namespace testsupport {

using Bytes = std::vector<uint8_t>;

// For the life of the object the IMC stacks read this clock (ms) and the
// adapter's log lines are kept here.
class ImcWorld {
public:
    explicit ImcWorld(uint64_t start_ms = 1000);
    ~ImcWorld();
    ImcWorld(const ImcWorld&) = delete;
    ImcWorld& operator=(const ImcWorld&) = delete;

    static void set_time(uint64_t ms);
    static int noreplies();                      // no-reply handler calls so far
    static int logged(const std::string& part);  // log lines containing part
    static void clear_log();
};

// One end of the link: its stack (private_data = this), its reader, and what
// its handlers saw. Requests are answered with {command, 0xAA} unless
// answer_requests is false.
struct ImcPeer {
    ImcPeer(const IMC_Config_s& config, int fd);
    ~ImcPeer();
    ImcPeer(const ImcPeer&) = delete;
    ImcPeer& operator=(const ImcPeer&) = delete;

    // Feeds bytes to the reader in pieces of at most `piece` bytes; returns
    // the messages handed to the stack.
    int feed(const Bytes& bytes, size_t piece = 4096);
    // Feeds what waits on the socket.
    int pump(size_t piece = 4096) { return feed(take(), piece); }
    // What waits on the socket, taken away unread by the stack.
    Bytes take();
    int send_request(const Bytes& data);
    int transactions_in_use() const;

    IMC_Linux_Locks locks;
    IMC_Stack_Handle_s* handle = nullptr;
    IMC_Link_Reader reader{};
    int fd;
    bool answer_requests = true;
    int short_write = 0;  // when > 0, writes stop after this many bytes
    std::vector<Bytes> events, requests, replies;
    IMC_Transaction_s* last_request = nullptr;
};

// A pair of peers over a socket pair.
struct ImcLink {
    explicit ImcLink(const IMC_Config_s& config_a = IMC_FRONT_BOARD_CONFIG,
                     const IMC_Config_s& config_b = IMC_FRONT_BOARD_CONFIG);
    ~ImcLink();
    std::unique_ptr<ImcPeer> a, b;
};

}  // namespace testsupport
