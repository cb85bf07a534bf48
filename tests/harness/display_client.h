// A display client of the control socket: connects, sends 64-byte records
// (whole, split or short), and reads the 16-byte events and 64-byte replies
// that come back on the same connection.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "client/control_client.h"
#include "common/system_msg.h"
#include "common/tactord_types.h"

namespace testharness {

using namespace std::chrono_literals;

class DisplayClient {
public:
    // Connects to the control socket below root, waiting for the daemon to
    // create it.
    explicit DisplayClient(const std::string& root, std::chrono::milliseconds wait = 10s);
    ~DisplayClient();
    DisplayClient(const DisplayClient&) = delete;
    DisplayClient& operator=(const DisplayClient&) = delete;

    bool connected() const { return fd_ >= 0; }
    bool send(const SystemMsg& msg);
    bool send_raw(const void* data, std::size_t len);
    // TYPE_INPUT_INIT for screen.
    bool register_for(int screen);
    // Exactly len bytes, or nothing when they do not come in time.
    std::optional<std::vector<uint8_t>> read_bytes(std::size_t len, std::chrono::milliseconds timeout = 3s);
    std::optional<SystemMsg> read_reply(std::chrono::milliseconds timeout = 3s);
    std::optional<tactord::input_event> read_event(std::chrono::milliseconds timeout = 3s);
    // Bytes that arrive within timeout (none expected).
    std::size_t pending(std::chrono::milliseconds timeout);
    // True once the daemon has closed the connection.
    bool closed_by_peer(std::chrono::milliseconds timeout = 3s);
    void close_now();

private:
    int fd_ = -1;
};

// A request with every byte zero but type and index, as the tools build it.
inline SystemMsg make_msg(int32_t type, int32_t scr_index = 0)
{
    return tools::make_request(type, scr_index);
}

}  // namespace testharness
