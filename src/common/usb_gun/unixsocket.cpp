#include "common/usb_gun/unixsocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <thread>

#include "common/root_path.h"
#include "common/usb_gun/usblog.h"

namespace {

// The address length the service binds with: the whole sockaddr_un.
constexpr socklen_t UNIX_ADDR_LEN = 110;
static_assert(sizeof(sockaddr_un) == UNIX_ADDR_LEN);

sockaddr_un make_address(const char* path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    // At most 107 characters; the last byte stays the terminator.
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path != nullptr ? path : "");
    return addr;
}

}  // namespace

int unix_server_open(const char* path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        USBLOG("Create server socket is error.\r\n");
        return -1;
    }
    root_path_buf resolved;
    const char* where = resolve_path(path, resolved);
    const sockaddr_un addr = make_address(where);
    unlink(addr.sun_path);
    // A socket whose bind or listen failed is closed: the services retry
    // every 100 ms, and one left open each time ran the process out of
    // descriptors (for example with a directory left at the path).
    if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), UNIX_ADDR_LEN) < 0) {
        close(fd);
        USBLOG("Bind socket is error.\r\n");
        return -2;
    }
    if (listen(fd, 5) < 0) {
        close(fd);
        USBLOG("Listen socket is error.\r\n");
        return -2;
    }
    chmod(addr.sun_path, 0777);
    return fd;
}

int unix_client_open(const char* path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        USBLOG("Create client socket is error.\r\n");
        return -1;
    }
    root_path_buf resolved;
    const sockaddr_un addr = make_address(resolve_path(path, resolved));
    if (connect(fd, reinterpret_cast<const sockaddr*>(&addr), UNIX_ADDR_LEN) < 0) {
        close(fd);
        USBLOG("Connect server socket is error.\r\n");
        return -2;
    }
    return fd;
}

int unix_server_accept(int fd)
{
    return accept(fd, nullptr, nullptr);
}

unsigned AcceptFailures::note(int err, std::chrono::steady_clock::time_point now)
{
    if (err == EMFILE || err == ENFILE)
        std::this_thread::sleep_for(kExhaustedPause);
    ++held_;
    if (logged_ && now - last_line_ < std::chrono::seconds(1))
        return 0;
    logged_ = true;
    last_line_ = now;
    const unsigned n = held_;
    held_ = 0;
    return n;
}

int unix_socket_wait(int fd, unsigned timeout_ms)
{
    if (fd < 0)
        return -1;
    pollfd p{fd, POLLIN, 0};
    const int ready = poll(&p, 1, static_cast<int>(timeout_ms));
    if (ready <= 0)
        return ready;
    // A hung-up or failed socket counts as readable: its read tells which.
    if ((p.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    return 1;
}

ssize_t unix_socket_read(int fd, void* buf, std::size_t len, unsigned timeout_ms)
{
    if (buf == nullptr)
        return -1;
    if (timeout_ms != 0) {
        const int ready = unix_socket_wait(fd, timeout_ms);
        if (ready <= 0)
            return ready;
    }
    return read(fd, buf, len);
}

ssize_t unix_socket_write(int fd, const void* buf, std::size_t len)
{
    return write(fd, buf, len);
}

ssize_t unix_socket_send(int fd, const void* buf, std::size_t len)
{
    return send(fd, buf, len, MSG_NOSIGNAL);
}

int unix_socket_close(int fd)
{
    return fd >= 1 ? close(fd) : 0;
}
