// A display client of the control socket: sends 64-byte records (whole or in
// pieces) and reads the 16-byte events and 64-byte replies of its connection.
#pragma once

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
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

// Milliseconds left until deadline, 0 once it has passed.
inline std::chrono::milliseconds left_until(std::chrono::steady_clock::time_point deadline)
{
    return std::max(0ms, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()));
}

class DisplayClient {
public:
    // Connects to the control socket below root, waiting for the daemon to create it.
    explicit DisplayClient(const std::string& root, std::chrono::milliseconds wait = 10s)
    {
        std::string error;
        conn_ = tools::ControlConnection::open(root + SYSTEM_MSG_SOCKET, wait, error);
    }
    bool connected() const { return conn_.has_value(); }
    bool send_raw(const void* data, std::size_t len)
    {
        return conn_ && ::send(conn_->fd(), data, len, MSG_NOSIGNAL) == static_cast<ssize_t>(len);
    }
    bool send(const SystemMsg& msg) { return send_raw(&msg, sizeof msg); }
    bool register_for(int screen) { return send(make_msg(TYPE_INPUT_INIT, screen)); }
    std::optional<SystemMsg> read_reply(std::chrono::milliseconds timeout = 3s) { return read<SystemMsg>(timeout); }
    std::optional<tactord::input_event> read_event(std::chrono::milliseconds timeout = 3s)
    {
        return read<tactord::input_event>(timeout);
    }
    // Bytes that arrive within timeout (none expected).
    std::size_t pending(std::chrono::milliseconds timeout)
    {
        pollfd p{conn_ ? conn_->fd() : -1, POLLIN, 0};
        char buf[256];
        const ssize_t n = poll(&p, 1, static_cast<int>(timeout.count())) > 0 ? recv(p.fd, buf, sizeof buf, MSG_DONTWAIT | MSG_PEEK) : 0;
        return n > 0 ? static_cast<std::size_t>(n) : 0;
    }
    // True once the daemon has closed the connection (what comes before is read and dropped).
    bool closed_by_peer(std::chrono::milliseconds timeout = 3s)
    {
        char buf[256];
        for (const auto deadline = std::chrono::steady_clock::now() + timeout; std::chrono::steady_clock::now() < deadline;) {
            pollfd p{conn_ ? conn_->fd() : -1, POLLIN, 0};
            if (poll(&p, 1, 50) > 0 && recv(p.fd, buf, sizeof buf, MSG_DONTWAIT) == 0)
                return true;
        }
        return false;
    }
    void close_now() { conn_.reset(); }

private:
    template <typename T>
    std::optional<T> read(std::chrono::milliseconds timeout)
    {
        T record{};
        if (!conn_ || conn_->read_exact(&record, sizeof record, timeout) != tools::ControlConnection::Read::ok)
            return std::nullopt;
        return record;
    }
    std::optional<tools::ControlConnection> conn_;
};

}  // namespace testharness
