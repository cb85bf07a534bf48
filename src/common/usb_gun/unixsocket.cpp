#include "common/usb_gun/unixsocket.h"

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>

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
    if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), UNIX_ADDR_LEN) < 0) {
        USBLOG("Bind socket is error.\r\n");
        return -2;  // the socket is left open, as the service always has
    }
    if (listen(fd, 5) < 0) {
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

ssize_t unix_socket_read(int fd, void* buf, std::size_t len, unsigned timeout_ms)
{
    if (buf == nullptr)
        return -1;
    if (timeout_ms != 0) {
        if (fd < 0 || fd >= FD_SETSIZE)
            return -1;
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval tv{static_cast<time_t>(timeout_ms / 1000), static_cast<suseconds_t>((timeout_ms % 1000) * 1000)};
        const int ready = select(fd + 1, &set, nullptr, nullptr, &tv);
        if (ready == 0)
            return 0;
        if (ready < 0)
            return -1;
    }
    return read(fd, buf, len);
}

ssize_t unix_socket_write(int fd, const void* buf, std::size_t len)
{
    return write(fd, buf, len);
}

int unix_socket_close(int fd)
{
    return fd >= 1 ? close(fd) : 0;
}
