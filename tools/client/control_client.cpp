#include "client/control_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "common/root_path.h"

namespace tools {

std::string default_socket_path()
{
    root_path_buf buf;
    return resolve_path(SYSTEM_MSG_SOCKET, buf);
}

SystemMsg make_request(int32_t type, int32_t scr_index)
{
    SystemMsg msg;
    std::memset(&msg, 0, sizeof msg);
    msg.type = type;
    msg.scr_index = scr_index;
    return msg;
}

SystemMsg make_fence()
{
    return make_request(TYPE_MODE_GET, kFenceMark);
}

bool is_fence_reply(const uint8_t* record)
{
    int32_t head[2];
    std::memcpy(head, record, sizeof head);
    return head[0] == TYPE_MODE_GET && head[1] == kFenceMark;
}

std::optional<ControlConnection> ControlConnection::open(const std::string& path, std::chrono::milliseconds wait,
                                                         std::string& error)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path) {
        error = "socket path too long: " + path;
        return std::nullopt;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    const auto deadline = std::chrono::steady_clock::now() + wait;
    for (;;) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            error = std::string("socket: ") + std::strerror(errno);
            return std::nullopt;
        }
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0)
            return ControlConnection(fd);
        const int err = errno;
        close(fd);
        if (std::chrono::steady_clock::now() >= deadline) {
            error = "cannot connect to the control socket " + path + ": " + std::strerror(err) +
                    (err == ENOENT || err == ECONNREFUSED ? " (is tactord running? --socket or TACTORD_ROOT choose "
                                                           "another socket)"
                                                         : "");
            return std::nullopt;
        }
        std::this_thread::sleep_for(50ms);
    }
}

ControlConnection::ControlConnection(ControlConnection&& other) noexcept : fd_(other.fd_)
{
    other.fd_ = -1;
}

ControlConnection& ControlConnection::operator=(ControlConnection&& other) noexcept
{
    if (this != &other) {
        if (fd_ >= 0)
            close(fd_);
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

ControlConnection::~ControlConnection()
{
    if (fd_ >= 0)
        close(fd_);
}

bool ControlConnection::send(const SystemMsg& msg)
{
    const auto* p = reinterpret_cast<const uint8_t*>(&msg);
    std::size_t sent = 0;
    while (sent < sizeof msg) {
        const ssize_t n = ::send(fd_, p + sent, sizeof msg - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

ControlConnection::Read ControlConnection::read_exact(void* out, std::size_t len, std::chrono::milliseconds timeout)
{
    auto* p = static_cast<uint8_t*>(out);
    std::size_t got = 0;
    auto deadline = std::chrono::steady_clock::now() + timeout;
    bool late = false;
    while (got < len) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd pfd{fd_, POLLIN, 0};
        const int r = left.count() > 0 ? poll(&pfd, 1, static_cast<int>(left.count())) : 0;
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            return Read::closed;
        if (r == 0 && got > 0 && !late) {
            // A record begun is read whole (or the stream is lost): dropping
            // its first bytes would put every later record out of step.
            deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
            late = true;
            continue;
        }
        if (r == 0)
            return got > 0 ? Read::closed : Read::timeout;
        const ssize_t n = recv(fd_, p + got, len - got, 0);
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (n <= 0)
            return Read::closed;
        got += static_cast<std::size_t>(n);
    }
    return Read::ok;
}

bool has_reply(int32_t type)
{
    switch (type) {
    case TYPE_MODE_GET:
    case TYPE_IPC_CONNECTED:
    case TYPE_GET_IPC_WIN_INFO:
    case TYPE_ORVEL_EXT_SCR_EXIST:
    case TYPE_GET_VERSION:
    case TYPE_CALI_TS:
    case TYPE_CHECK_TS_TYPE:
    case TYPE_GET_TS_CALI_PARA:
        return true;
    default:
        return false;
    }
}

ControlConnection::Answer ControlConnection::exchange(const SystemMsg& msg, std::chrono::milliseconds timeout)
{
    Answer answer;
    if (!send(msg) || !send(make_fence()))
        return answer;
    // Replies come in the order of the requests: the request's own (if any),
    // then the fence's. A connection registered for a screen also gets that
    // screen's 16-byte events in between; they are skipped.
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        union {
            SystemMsg rec;
            uint8_t bytes[sizeof(SystemMsg)];
        } in;
        constexpr std::size_t kEvent = sizeof(tactord::input_event);
        if (left.count() <= 0 || read_exact(in.bytes, kEvent, left) != Read::ok)
            return answer;
        const bool fence = is_fence_reply(in.bytes);
        const bool own = !answer.reply && has_reply(msg.type) && in.rec.type == msg.type &&
                         in.rec.scr_index == msg.scr_index;
        if (!fence && !own)
            continue;
        if (read_exact(in.bytes + kEvent, sizeof(SystemMsg) - kEvent, left) != Read::ok)
            return answer;
        if (fence) {
            answer.ok = true;
            answer.mode = in.rec.data.nValue;
            return answer;
        }
        answer.reply = in.rec;
    }
}

}  // namespace tools
