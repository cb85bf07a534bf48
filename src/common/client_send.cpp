#include "common/client_send.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>

#include "common/communicate.h"
#include "common/log.h"

namespace {

// A client is still reading, though slowly, when in one window it took this
// many records or freed this share of its queue; it keeps its connection
// (and loses the records that found no room).
constexpr unsigned PROGRESS_RECORDS = 16;
constexpr int PROGRESS_SHARE = 8;  // an eighth of the queue

// One socket remembered as full. Guarded by the loop lock, like everything
// in this module.
struct Stall {
    int fd = 0;            // 0: the entry is free
    int64_t since_ms = 0;  // start of the current 2-s window without progress
    unsigned dropped = 0;  // records lost in this episode
    unsigned taken = 0;    // records the socket took in the current window
    int queued = -1;       // bytes queued at the start of the window (-1: unknown)
    bool spoilt = false;   // a record was cut short: the stream is unreadable
};

// At most one entry per served descriptor, and the main loop serves at most
// 32; a table of that size never runs out.
std::array<Stall, 32> stalls{};
// Entries in use: while none is, a record's way to the socket skips the
// table (the common case, on the path of every event).
int stalls_in_use = 0;

Stall* find(int fd)
{
    if (fd != 0 && stalls_in_use == 0)
        return nullptr;
    for (Stall& s : stalls) {
        if (s.fd == fd)
            return &s;
    }
    return nullptr;
}

void release(Stall* s)
{
    *s = {};
    --stalls_in_use;
}

bool has_room(int fd)
{
    pollfd p{fd, POLLOUT, 0};
    return poll(&p, 1, 0) == 1 && (p.revents & POLLOUT) != 0 && (p.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

// Bytes the socket still holds for its peer, -1 when it cannot tell.
int queued(int fd)
{
    int q = 0;
    return ioctl(fd, SIOCOUTQ, &q) == 0 ? q : -1;
}

void begin(int fd, bool spoilt, unsigned dropped)
{
    Stall* s = find(0);
    if (s == nullptr)
        return;  // cannot happen (see stalls); the next record simply waits again
    *s = {fd, monotonic_ms(), dropped, 0, queued(fd), spoilt};
    ++stalls_in_use;
    TLOG(LEVEL_ERROR, "client %d does not read: its records are dropped until its socket has room\n", fd);
}

void end(Stall* s)
{
    TLOG(LEVEL_ERROR, "client %d reads again, %u records were dropped\n", s->fd, s->dropped);
    release(s);
}

}  // namespace

int client_send(int fd, const void* buf, int len)
{
    if (fd <= 0 || buf == nullptr || len <= 0)
        return send_data(fd, buf, len);  // refused and logged there
    const auto* bytes = static_cast<const char*>(buf);
    Stall* s = find(fd);
    if (s != nullptr && s->spoilt) {
        ++s->dropped;
        errno = EAGAIN;
        return -1;
    }
    // Every record is first offered without waiting: a client that keeps up
    // never costs the loop a wait.
    const ssize_t n = send(fd, bytes, static_cast<std::size_t>(len), MSG_DONTWAIT);
    if (n == len) {
        if (s != nullptr)
            ++s->taken;
        return len;
    }
    if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
        const int err = errno;
        TLOG(LEVEL_ERROR, "send error, errno is %d\n", err);
        errno = err;
        return -1;
    }
    const int first = n > 0 ? static_cast<int>(n) : 0;
    if (s != nullptr) {
        // Known full: nothing is waited for. A record cut short leaves the
        // stream unreadable for the client.
        s->spoilt = s->spoilt || first > 0;
        ++s->dropped;
        errno = EAGAIN;
        return -1;
    }
    // Full just now: this record alone may wait the bounded time, and the
    // socket is remembered as full whether or not it then goes out.
    int more = 0;
    const bool whole = send_data_counted(fd, bytes + first, len - first, &more) == len - first;
    begin(fd, !whole && first + more > 0, whole ? 0 : 1);
    if (whole)
        return len;
    errno = EAGAIN;
    return -1;
}

bool client_send_stalled(int fd)
{
    return fd > 0 && find(fd) != nullptr;
}

int client_send_housekeeping(void (*drop)(int fd))
{
    if (stalls_in_use == 0)
        return -1;
    const int64_t now = monotonic_ms();
    int64_t next = -1;
    for (Stall& s : stalls) {
        if (s.fd == 0)
            continue;
        if (!s.spoilt && has_room(s.fd)) {
            end(&s);
            continue;
        }
        // A client that reads, however slowly, is not the one that stopped:
        // its window starts again.
        const int q = queued(s.fd);
        if (s.taken >= PROGRESS_RECORDS ||
            (q >= 0 && s.queued > 0 && q <= s.queued - s.queued / PROGRESS_SHARE)) {
            s.since_ms = now;
            s.taken = 0;
            s.queued = q;
        }
        const int64_t due = s.since_ms + CLIENT_STALL_DROP_MS;
        if (s.spoilt || now >= due) {
            const int fd = s.fd;
            // A client whose socket stays full for 2 s is disconnected and
            // its screens released; so is one whose stream a cut record has
            // made unreadable.
            TLOG(LEVEL_ERROR, "client %d has not read for %lld ms (%u records dropped): disconnected\n", fd,
                 static_cast<long long>(now - s.since_ms), s.dropped);
            release(&s);
            if (drop != nullptr)
                drop(fd);
            continue;
        }
        if (next < 0 || due - now < next)
            next = due - now;
    }
    return static_cast<int>(next);
}

void client_send_forget(int fd)
{
    if (fd <= 0)
        return;
    if (Stall* s = find(fd))
        release(s);
}
