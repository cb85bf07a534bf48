// A client connection to the daemon's control socket: connect (waiting for
// the daemon if asked), send 64-byte requests, and read what comes back.
// Requests that the daemon does not answer are followed by a fence, a
// TYPE_MODE_GET with a marker in scr_index, so that the client knows when the
// daemon has handled them and whether an answer came.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "common/system_msg.h"
#include "common/tactord_types.h"

namespace tools {

using namespace std::chrono_literals;

// scr_index of a fence. No event record can begin with it in that place: it
// is above any microsecond count.
inline constexpr int32_t kFenceMark = 0x7A637472;

// The control socket's path: "$TACTORD_ROOT/var/mutli_config.sock", or the
// production path.
std::string default_socket_path();

// A request with every byte zero but type and index.
SystemMsg make_request(int32_t type, int32_t scr_index = 0);
SystemMsg make_fence();
bool is_fence_reply(const uint8_t* record);
// True for the message types the daemon answers with a record.
bool has_reply(int32_t type);

class ControlConnection {
public:
    // Connects to path, retrying until wait has passed (a daemon that is
    // still starting). On failure error says what was tried and why.
    static std::optional<ControlConnection> open(const std::string& path, std::chrono::milliseconds wait,
                                                 std::string& error);
    ControlConnection(ControlConnection&& other) noexcept;
    ControlConnection& operator=(ControlConnection&& other) noexcept;
    ControlConnection(const ControlConnection&) = delete;
    ControlConnection& operator=(const ControlConnection&) = delete;
    ~ControlConnection();

    int fd() const { return fd_; }
    bool send(const SystemMsg& msg);
    enum class Read { ok, timeout, closed };
    // Exactly len bytes within timeout.
    Read read_exact(void* out, std::size_t len, std::chrono::milliseconds timeout);

    struct Answer {
        bool ok = false;                // the fence came back: the daemon handled the request
        std::optional<SystemMsg> reply; // the request's own reply, when it has one
        int mode = 0;                   // the mode the fence reported
    };
    // Sends msg and a fence and reads both answers (on a connection that is
    // not registered for a screen, nothing else arrives).
    Answer exchange(const SystemMsg& msg, std::chrono::milliseconds timeout = 3s);

private:
    explicit ControlConnection(int fd) : fd_(fd) {}
    int fd_ = -1;
};

}  // namespace tools
