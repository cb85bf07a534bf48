// Local (AF_UNIX) stream sockets shared by the scanner and key-sound services
// and the scanner client library. Failures are logged to the scanner
// service's log.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>

// Listening socket on path (at most 107 characters are used; the file is
// unlinked first and made world-accessible). Returns the descriptor, -1 when
// the socket cannot be created, -2 when bind or listen fails (that socket is
// closed again).
int unix_server_open(const char* path);
// Connected client socket: -1 when the socket cannot be created, -2 when the
// connection fails.
int unix_client_open(const char* path);
// accept(): the new descriptor or the error.
int unix_server_accept(int fd);

// The failed accepts of one service listener. A listener out of descriptors
// (EMFILE, ENFILE) fails again at once for as long as its queued client
// waits, so it pauses before it tries again, and the failures are logged one
// line a second at most.
class AcceptFailures {
public:
    static constexpr std::chrono::milliseconds kExhaustedPause{500};

    // Counts a failure with errno err (pausing first when descriptors ran
    // out). Returns how many failures to report now, this one and those held
    // back since the last line; 0 while the last line is less than a second
    // old.
    unsigned note(int err, std::chrono::steady_clock::time_point now = std::chrono::steady_clock::now());

private:
    std::chrono::steady_clock::time_point last_line_{};
    bool logged_ = false;
    unsigned held_ = 0;
};

// Waits up to timeout_ms for fd to become readable (poll, so any descriptor
// number works): 1 readable (or at its end), 0 timed out, -1 error.
int unix_socket_wait(int fd, unsigned timeout_ms);
// -1 for a null buffer. With timeout_ms not 0 waits that long for data and
// returns 0 when none came; then one read of up to len bytes.
ssize_t unix_socket_read(int fd, void* buf, std::size_t len, unsigned timeout_ms);
// One write, its result returned (a short write is not retried).
ssize_t unix_socket_write(int fd, const void* buf, std::size_t len);
// One send that never raises SIGPIPE: a peer that went away gives -1 with
// EPIPE (or ECONNRESET). A send time-out set on the socket bounds it.
ssize_t unix_socket_send(int fd, const void* buf, std::size_t len);
// Closes fd when it is 1 or more; 0 otherwise.
int unix_socket_close(int fd);
