#include "common/communicate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/log.h"

namespace {

constexpr int RECV_RETRIES = 10;
constexpr int RECV_RETRY_US = 10000;
constexpr int RECORD_PASSES = 10;
constexpr int RECORD_PASS_US = 10000;
constexpr int SEND_WAITS = 10;
constexpr int SEND_WAIT_US = 20000;

// Fills a local address for path. The address length is the path's length
// plus the two bytes of the family, as the peers of this socket expect. A
// path that does not fit sun_path is refused (false, errno ENAMETOOLONG)
// rather than copied past it.
bool local_address(const char* path, sockaddr_un* addr, socklen_t* len)
{
    const std::size_t n = std::strlen(path);
    if (n >= sizeof addr->sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    std::memcpy(addr->sun_path, path, n);
    *len = static_cast<socklen_t>(n + 2);
    return true;
}

}  // namespace

int create_monitor(const char* path)
{
    if (path == nullptr)
        return -1;
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        TLOG(LEVEL_ERROR, "socket failed\n");
        return -1;
    }
    unlink(path);
    sockaddr_un addr;
    socklen_t len = 0;
    if (!local_address(path, &addr, &len) || bind(fd, reinterpret_cast<sockaddr*>(&addr), len) < 0) {
        TLOG(LEVEL_ERROR, "bind,err is %d\n", errno);
        return -1;  // the descriptor is abandoned, as it always has been
    }
    if (listen(fd, 5) < 0) {
        TLOG(LEVEL_ERROR, "listen err is %d\n", errno);
        return -1;
    }
    return fd;
}

int get_new_comming_client(int fd)
{
    // 110 bytes: the peer's local address, or an IPv4 one.
    union {
        sockaddr_un un;
        sockaddr_in in;
        char bytes[110];
    } peer{};
    socklen_t len = sizeof peer;
    const int client = accept(fd, reinterpret_cast<sockaddr*>(&peer), &len);
    if (client < 0) {
        TLOG(LEVEL_ERROR, "accept,err is %d\n", errno);
        return -1;
    }
    return client;
}

int connect_monitor(const char* path)
{
    if (path == nullptr)
        return -1;
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        TLOG(LEVEL_ERROR, "socket,err is %d\n", errno);
        return -1;
    }
    TLOG(LEVEL_DEBUG, "Trying to connect...\n");
    sockaddr_un addr;
    socklen_t len = 0;
    if (!local_address(path, &addr, &len) || connect(fd, reinterpret_cast<sockaddr*>(&addr), len) < 0) {
        TLOG(LEVEL_ERROR, "connect,err is %d\n", errno);
        return -1;  // left open, as the callers of this helper expect
    }
    TLOG(LEVEL_DEBUG, "Connected.\n");
    return fd;
}

int create_client_socket(const char* ip, int port)
{
    if (ip == nullptr)
        return -1;
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    // Error level even on success: this line always shows.
    TLOG(LEVEL_ERROR, "knob client socket fd: %d...\n", fd);
    if (fd < 0) {
        TLOG(LEVEL_ERROR, "socket failed\n");
        return -1;
    }
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    // Text that is no address leaves 0.0.0.0, which the connect refuses.
    inet_pton(AF_INET, ip, &addr.sin_addr);
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) < 0) {
        TLOG(LEVEL_ERROR, "fd %d connect error is %d\n", fd, errno);
        close(fd);
        return -1;
    }
    return fd;
}

int close_connect(int fd)
{
    return close(fd);
}

int recv_data(int fd, void* buf, int len)
{
    if (buf == nullptr || fd <= 0 || len <= 0) {
        TLOG(LEVEL_ERROR, "para error\n");
        return -1;
    }
    for (int retries = 0;; ++retries) {
        const ssize_t n = recv(fd, buf, static_cast<std::size_t>(len), 0);
        if (n > 0)
            return static_cast<int>(n);
        if (n == 0) {
            TLOG(LEVEL_DEBUG, "Server closed connection\n");
            return 0;
        }
        if (errno != EINTR && errno != EAGAIN) {
            TLOG(LEVEL_ERROR, "recv,err is %d", errno);
            return -1;
        }
        if (retries >= RECV_RETRIES) {
            TLOG(LEVEL_ERROR, "tactord: recv again fail, err is %d", errno);
            return -1;
        }
        usleep(RECV_RETRY_US);
    }
}

int recv_need_len_data(int fd, void* buf, int len, int needlen)
{
    auto* bytes = static_cast<char*>(buf);
    int nrecv = 0;
    int ncount = RECORD_PASSES;
    while (ncount > 0) {
        --ncount;
        // Never more than the buffer holds: a pass asks for what is left of len.
        const int n = recv_data(fd, bytes == nullptr ? nullptr : bytes + nrecv, len - nrecv);
        if (n < 0)
            return 0;
        nrecv += n;
        if (nrecv == 0)
            return 0;
        if (nrecv == needlen)
            return nrecv;
        usleep(RECORD_PASS_US);
    }
    TLOG(LEVEL_ERROR, "recv_need_len_data failed needlen =%d, nrecvLen=%d, ncount=%d\n", needlen, nrecv, ncount);
    return 0;
}

int send_data(int fd, const void* buf, int len)
{
    if (buf == nullptr || fd <= 0 || len <= 0) {
        TLOG(LEVEL_ERROR, "para error\n");
        return -1;
    }
    const auto* bytes = static_cast<const char*>(buf);
    int sent = 0;
    int waits = 0;
    while (sent < len) {
        const ssize_t n = send(fd, bytes + sent, static_cast<std::size_t>(len - sent), 0);
        if (n != -1) {
            sent += static_cast<int>(n);
            continue;
        }
        if (errno != EAGAIN) {
            TLOG(LEVEL_ERROR, "send error, errno is %d\n", errno);
            return -1;
        }
        if (waits > SEND_WAITS - 1) {
            TLOG(LEVEL_ERROR, "send error, errno is EAGAIN > %d\n ", waits + 1);
            return -1;
        }
        ++waits;
        usleep(SEND_WAIT_US);
    }
    return len;
}
