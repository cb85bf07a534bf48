#include "common/client_send.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <chrono>

#include "common/communicate.h"
#include "common/log.h"

namespace {

// One socket remembered as full. Guarded by the loop lock, like everything
// in this module.
struct Stall {
    int fd = 0;              // 0: the entry is free
    int64_t since_ms = 0;    // when the episode began
    unsigned dropped = 0;    // records lost in this episode
    bool spoilt = false;     // a record was cut short: the stream is unreadable
};

// At most one entry per served descriptor, and the main loop serves at most
// 32; a table of that size never runs out.
std::array<Stall, 32> stalls{};

Stall* find(int fd)
{
    for (Stall& s : stalls) {
        if (s.fd == fd)
            return &s;
    }
    return nullptr;
}

bool has_room(int fd)
{
    pollfd p{fd, POLLOUT, 0};
    return poll(&p, 1, 0) == 1 && (p.revents & POLLOUT) != 0 && (p.revents & (POLLERR | POLLHUP | POLLNVAL)) == 0;
}

void begin(int fd, bool spoilt)
{
    Stall* s = find(0);
    if (s == nullptr)
        return;  // cannot happen (see stalls); the next record simply waits again
    *s = {fd, client_clock_ms(), 1, spoilt};
    TLOG(LEVEL_ERROR, "client %d does not read: its records are dropped until its socket has room\n", fd);
}

void end(Stall* s)
{
    TLOG(LEVEL_ERROR, "client %d reads again, %u records were dropped\n", s->fd, s->dropped);
    *s = {};
}

}  // namespace

int64_t client_clock_ms()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

int client_send(int fd, const void* buf, int len)
{
    if (fd <= 0)
        return send_data(fd, buf, len);  // refused and logged there
    Stall* s = find(fd);
    if (s != nullptr) {
        // Known full: nothing is waited for. A socket that has room again
        // takes the record and ends the episode.
        if (s->spoilt || !has_room(fd)) {
            ++s->dropped;
            errno = EAGAIN;
            return -1;
        }
    }
    int sent = 0;
    const int n = send_data_counted(fd, buf, len, &sent);
    if (n == len) {
        if (s != nullptr)
            end(s);
        return n;
    }
    const bool full = errno == EAGAIN;
    if (s != nullptr) {
        ++s->dropped;
        s->spoilt = s->spoilt || sent > 0;
    } else if (full || sent > 0) {
        begin(fd, sent > 0);
    }
    return -1;
}

bool client_send_stalled(int fd)
{
    return fd > 0 && find(fd) != nullptr;
}

int client_send_housekeeping(void (*drop)(int fd))
{
    const int64_t now = client_clock_ms();
    int64_t next = -1;
    for (Stall& s : stalls) {
        if (s.fd == 0)
            continue;
        if (!s.spoilt && has_room(s.fd)) {
            end(&s);
            continue;
        }
        const int64_t due = s.since_ms + CLIENT_STALL_DROP_MS;
        if (s.spoilt || now >= due) {
            const int fd = s.fd;
            // A client whose socket stays full for 2 s is disconnected and
            // its screens released; so is one whose stream a cut record has
            // made unreadable.
            TLOG(LEVEL_ERROR, "client %d has not read for %lld ms (%u records dropped): disconnected\n", fd,
                 static_cast<long long>(now - s.since_ms), s.dropped);
            s = {};
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
        *s = {};
}
