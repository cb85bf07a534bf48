#include "common/communicate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>

#include "common/log.h"

namespace {

constexpr int RECV_RETRIES = 10;
constexpr int RECV_RETRY_US = 10000;
constexpr int RECORD_PASSES = 10;
constexpr int RECORD_PASS_US = 10000;
constexpr int SEND_WAITS = 10;
constexpr int SEND_WAIT_US = 20000;
constexpr int64_t ACCEPT_LOG_GAP_MS = 1000;

// Deadline for the waits of recv_data and send_data on this thread, in
// monotonic milliseconds; 0 = none (see IoWaitLimit).
thread_local int64_t wait_deadline_ms = 0;

}  // namespace

int64_t monotonic_ms()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

namespace {

// True when a wait of us microseconds still ends before this thread's
// deadline (always, without one).
bool may_wait(int us)
{
    return wait_deadline_ms == 0 || monotonic_ms() + us / 1000 <= wait_deadline_ms;
}

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
    // A socket whose bind or listen failed is closed, not abandoned: a
    // caller that retries would otherwise lose one descriptor per attempt.
    if (!local_address(path, &addr, &len) || bind(fd, reinterpret_cast<sockaddr*>(&addr), len) < 0) {
        TLOG(LEVEL_ERROR, "bind,err is %d\n", errno);
        close(fd);
        return -1;
    }
    if (listen(fd, 5) < 0) {
        TLOG(LEVEL_ERROR, "listen err is %d\n", errno);
        close(fd);
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
        const int err = errno;
        // Out of descriptors, the same failure repeats for as long as the
        // shortage lasts: one line a second at most.
        static std::atomic<int64_t> last_shortage_ms{INT64_MIN / 2};
        const int64_t now = monotonic_ms();
        const bool shortage = err == EMFILE || err == ENFILE;
        if (!shortage || now - last_shortage_ms.load(std::memory_order_relaxed) >= ACCEPT_LOG_GAP_MS) {
            if (shortage)
                last_shortage_ms.store(now, std::memory_order_relaxed);
            TLOG(LEVEL_ERROR, "accept,err is %d\n", err);
        }
        errno = err;
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
        if (retries >= RECV_RETRIES || !may_wait(RECV_RETRY_US)) {
            const int err = errno;
            TLOG(LEVEL_ERROR, "tactord: recv again fail, err is %d", err);
            errno = err;
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
        if (!may_wait(RECORD_PASS_US))
            break;
        usleep(RECORD_PASS_US);
    }
    TLOG(LEVEL_ERROR, "recv_need_len_data failed needlen =%d, nrecvLen=%d, ncount=%d\n", needlen, nrecv, ncount);
    return 0;
}

int send_data(int fd, const void* buf, int len)
{
    return send_data_counted(fd, buf, len, nullptr);
}

int send_data_counted(int fd, const void* buf, int len, int* sent_out)
{
    int sent = 0;
    if (sent_out != nullptr)
        *sent_out = 0;
    if (buf == nullptr || fd <= 0 || len <= 0) {
        TLOG(LEVEL_ERROR, "para error\n");
        return -1;
    }
    const auto* bytes = static_cast<const char*>(buf);
    int waits = 0;
    int result = len;
    while (sent < len) {
        const ssize_t n = send(fd, bytes + sent, static_cast<std::size_t>(len - sent), 0);
        if (n != -1) {
            sent += static_cast<int>(n);
            continue;
        }
        const int err = errno;
        if (err != EAGAIN) {
            TLOG(LEVEL_ERROR, "send error, errno is %d\n", err);
            errno = err;
            result = -1;
            break;
        }
        // The waits count over the whole call; a deadline set for this
        // thread's pass cuts them short.
        if (waits > SEND_WAITS - 1 || !may_wait(SEND_WAIT_US)) {
            TLOG(LEVEL_ERROR, "send error, errno is EAGAIN > %d\n ", waits + 1);
            errno = EAGAIN;
            result = -1;
            break;
        }
        ++waits;
        usleep(SEND_WAIT_US);
    }
    if (sent_out != nullptr)
        *sent_out = sent;
    return result;
}

IoWaitLimit::IoWaitLimit(int ms) : saved_(wait_deadline_ms)
{
    const int64_t mine = monotonic_ms() + ms;
    if (wait_deadline_ms == 0 || mine < wait_deadline_ms)
        wait_deadline_ms = mine;
}

IoWaitLimit::~IoWaitLimit()
{
    wait_deadline_ms = saved_;
}
