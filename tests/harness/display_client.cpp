#include "harness/display_client.h"

#include <poll.h>
#include <sys/socket.h>

namespace testharness {

bool DisplayClient::send_raw(const void* data, std::size_t len)
{
    return conn_ && ::send(conn_->fd(), data, len, MSG_NOSIGNAL) == static_cast<ssize_t>(len);
}

std::size_t DisplayClient::pending(std::chrono::milliseconds timeout)
{
    pollfd p{conn_ ? conn_->fd() : -1, POLLIN, 0};
    char buf[256];
    const ssize_t n =
        poll(&p, 1, static_cast<int>(timeout.count())) > 0 ? recv(p.fd, buf, sizeof buf, MSG_DONTWAIT | MSG_PEEK) : 0;
    return n > 0 ? static_cast<std::size_t>(n) : 0;
}

bool DisplayClient::closed_by_peer(std::chrono::milliseconds timeout)
{
    char buf[256];
    for (const auto deadline = std::chrono::steady_clock::now() + timeout; std::chrono::steady_clock::now() < deadline;) {
        pollfd p{conn_ ? conn_->fd() : -1, POLLIN, 0};
        if (poll(&p, 1, 50) > 0 && recv(p.fd, buf, sizeof buf, MSG_DONTWAIT) == 0)
            return true;
    }
    return false;
}

}  // namespace testharness
