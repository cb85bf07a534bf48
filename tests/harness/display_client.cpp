#include "harness/display_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <thread>

namespace testharness {

DisplayClient::DisplayClient(const std::string& root, std::chrono::milliseconds wait)
{
    const std::string path = root + SYSTEM_MSG_SOCKET;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
    const auto deadline = std::chrono::steady_clock::now() + wait;
    while (std::chrono::steady_clock::now() < deadline) {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0) {
            fd_ = fd;
            return;
        }
        close(fd);
        std::this_thread::sleep_for(20ms);
    }
}

DisplayClient::~DisplayClient()
{
    close_now();
}

void DisplayClient::close_now()
{
    if (fd_ >= 0)
        close(fd_);
    fd_ = -1;
}

bool DisplayClient::send_raw(const void* data, std::size_t len)
{
    return fd_ >= 0 && ::send(fd_, data, len, MSG_NOSIGNAL) == static_cast<ssize_t>(len);
}

bool DisplayClient::send(const SystemMsg& msg)
{
    return send_raw(&msg, sizeof msg);
}

bool DisplayClient::register_for(int screen)
{
    return send(make_msg(TYPE_INPUT_INIT, screen));
}

std::optional<std::vector<uint8_t>> DisplayClient::read_bytes(std::size_t len, std::chrono::milliseconds timeout)
{
    std::vector<uint8_t> out(len);
    std::size_t got = 0;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (got < len && fd_ >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd p{fd_, POLLIN, 0};
        if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0)
            return std::nullopt;
        const ssize_t n = recv(fd_, out.data() + got, len - got, 0);
        if (n <= 0)
            return std::nullopt;
        got += static_cast<std::size_t>(n);
    }
    if (got < len)
        return std::nullopt;
    return out;
}

std::optional<SystemMsg> DisplayClient::read_reply(std::chrono::milliseconds timeout)
{
    auto bytes = read_bytes(sizeof(SystemMsg), timeout);
    if (!bytes)
        return std::nullopt;
    SystemMsg msg;
    std::memcpy(&msg, bytes->data(), sizeof msg);
    return msg;
}

std::optional<tactord::input_event> DisplayClient::read_event(std::chrono::milliseconds timeout)
{
    auto bytes = read_bytes(sizeof(tactord::input_event), timeout);
    if (!bytes)
        return std::nullopt;
    tactord::input_event ev;
    std::memcpy(&ev, bytes->data(), sizeof ev);
    return ev;
}

std::size_t DisplayClient::pending(std::chrono::milliseconds timeout)
{
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(timeout.count())) <= 0)
        return 0;
    uint8_t buf[256];
    const ssize_t n = recv(fd_, buf, sizeof buf, MSG_DONTWAIT | MSG_PEEK);
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

bool DisplayClient::closed_by_peer(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    uint8_t buf[256];
    while (std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd_, POLLIN, 0};
        if (poll(&p, 1, 50) > 0 && recv(fd_, buf, sizeof buf, MSG_DONTWAIT) == 0)
            return true;
    }
    return false;
}

}  // namespace testharness
