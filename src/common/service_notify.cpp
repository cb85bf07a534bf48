#include "common/service_notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

// A whole decimal number above zero, else 0.
long long positive_number(const char* text)
{
    if (text == nullptr || text[0] < '0' || text[0] > '9')
        return 0;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text, &end, 10);
    return errno == 0 && *end == '\0' && value > 0 ? value : 0;
}

}  // namespace

int service_notify(const char* state)
{
    const char* name = std::getenv("NOTIFY_SOCKET");
    if (name == nullptr || name[0] == '\0')
        return 0;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const std::size_t len = std::strlen(name);
    // Only Unix sockets are served: an absolute path or an abstract name.
    if ((name[0] != '/' && name[0] != '@') || len >= sizeof addr.sun_path)
        return -1;
    std::memcpy(addr.sun_path, name, len);
    socklen_t addr_len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + len + 1);
    if (name[0] == '@') {
        // The abstract name is the bytes after the NUL, without a terminator.
        addr.sun_path[0] = '\0';
        --addr_len;
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const std::size_t size = std::strlen(state);
    // MSG_DONTWAIT: a manager that does not read its queue must not stall
    // the thread that notifies (the watchdog's among them).
    const ssize_t sent =
        sendto(fd, state, size, MSG_NOSIGNAL | MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&addr), addr_len);
    close(fd);
    return sent == static_cast<ssize_t>(size) ? 1 : -1;
}

long long service_watchdog_interval_us()
{
    const long long period = positive_number(std::getenv("WATCHDOG_USEC"));
    if (period == 0)
        return 0;
    // Keep-alives asked of another process (a parent that passed its
    // environment on) are not ours to send.
    const char* pid = std::getenv("WATCHDOG_PID");
    if (pid != nullptr && pid[0] != '\0' && positive_number(pid) != getpid())
        return 0;
    return period / 2;
}
