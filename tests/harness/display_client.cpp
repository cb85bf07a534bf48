#include "harness/display_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

namespace testharness {

DisplayClient::DisplayClient(const std::string& root, std::chrono::milliseconds wait)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    (root + SYSTEM_MSG_SOCKET).copy(addr.sun_path, sizeof addr.sun_path - 1);
    for (const auto deadline = std::chrono::steady_clock::now() + wait; std::chrono::steady_clock::now() < deadline;) {
        fd_ = socket(AF_UNIX, SOCK_STREAM, 0);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0)
            return;
        close_now();
        std::this_thread::sleep_for(20ms);
    }
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

bool DisplayClient::read_bytes(void* out, std::size_t len, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (std::size_t got = 0; got < len; ) {
        pollfd p{fd_, POLLIN, 0};
        const ssize_t n = fd_ >= 0 && poll(&p, 1, static_cast<int>(left_until(deadline).count())) > 0
                              ? recv(fd_, static_cast<char*>(out) + got, len - got, 0)
                              : 0;
        if (n <= 0)
            return false;
        got += static_cast<std::size_t>(n);
    }
    return true;
}

std::size_t DisplayClient::pending(std::chrono::milliseconds timeout)
{
    pollfd p{fd_, POLLIN, 0};
    char buf[256];
    const ssize_t n = poll(&p, 1, static_cast<int>(timeout.count())) > 0 ? recv(fd_, buf, sizeof buf, MSG_DONTWAIT | MSG_PEEK) : 0;
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

bool DisplayClient::closed_by_peer(std::chrono::milliseconds timeout)
{
    char buf[256];
    for (const auto deadline = std::chrono::steady_clock::now() + timeout; std::chrono::steady_clock::now() < deadline;) {
        pollfd p{fd_, POLLIN, 0};
        if (poll(&p, 1, 50) > 0 && recv(fd_, buf, sizeof buf, MSG_DONTWAIT) == 0)
            return true;
    }
    return false;
}

}  // namespace testharness
