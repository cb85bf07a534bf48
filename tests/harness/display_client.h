// A display client of the control socket: sends 64-byte records (whole or in
// pieces) and reads the 16-byte events and 64-byte replies of its connection.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "client/control_client.h"
#include "common/system_msg.h"
#include "common/tactord_types.h"

namespace testharness {

using namespace std::chrono_literals;

// A request with every byte zero but type and index, as the tools build it.
inline SystemMsg make_msg(int32_t type, int32_t scr_index = 0)
{
    return tools::make_request(type, scr_index);
}

class DisplayClient {
public:
    // Connects to the control socket below root, waiting for the daemon to
    // create it.
    explicit DisplayClient(const std::string& root, std::chrono::milliseconds wait = 10s);
    ~DisplayClient() { close_now(); }
    DisplayClient(const DisplayClient&) = delete;
    DisplayClient& operator=(const DisplayClient&) = delete;

    bool connected() const { return fd_ >= 0; }
    bool send_raw(const void* data, std::size_t len);
    bool send(const SystemMsg& msg) { return send_raw(&msg, sizeof msg); }
    // TYPE_INPUT_INIT for screen.
    bool register_for(int screen) { return send(make_msg(TYPE_INPUT_INIT, screen)); }
    std::optional<SystemMsg> read_reply(std::chrono::milliseconds timeout = 3s) { return read<SystemMsg>(timeout); }
    std::optional<tactord::input_event> read_event(std::chrono::milliseconds timeout = 3s)
    {
        return read<tactord::input_event>(timeout);
    }
    // Bytes that arrive within timeout (none expected).
    std::size_t pending(std::chrono::milliseconds timeout);
    // True once the daemon has closed the connection.
    bool closed_by_peer(std::chrono::milliseconds timeout = 3s);
    void close_now();

private:
    // Exactly len bytes, false when they do not come in time.
    bool read_bytes(void* out, std::size_t len, std::chrono::milliseconds timeout);
    template <typename T>
    std::optional<T> read(std::chrono::milliseconds timeout)
    {
        T record{};
        return read_bytes(&record, sizeof record, timeout) ? std::optional<T>(record) : std::nullopt;
    }
    int fd_ = -1;
};

// Milliseconds left until deadline, 0 once it has passed.
inline std::chrono::milliseconds left_until(std::chrono::steady_clock::time_point deadline)
{
    return std::max(0ms, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()));
}

}  // namespace testharness
