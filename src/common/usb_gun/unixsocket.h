// Local (AF_UNIX) stream sockets shared by the scanner and key-sound services
// and the scanner client library. Failures are logged to the scanner
// service's log.
#pragma once

#include <cstddef>
#include <sys/types.h>

// Listening socket on path (at most 107 characters are used; the file is
// unlinked first and made world-accessible). Returns the descriptor, -1 when
// the socket cannot be created, -2 when bind or listen fails (that socket is
// left open).
int unix_server_open(const char* path);
// Connected client socket: -1 when the socket cannot be created, -2 when the
// connection fails.
int unix_client_open(const char* path);
// accept(): the new descriptor or the error.
int unix_server_accept(int fd);
// -1 for a null buffer. With timeout_ms not 0 waits that long for data and
// returns 0 when none came; then one read of up to len bytes.
ssize_t unix_socket_read(int fd, void* buf, std::size_t len, unsigned timeout_ms);
// One write, its result returned (a short write is not retried).
ssize_t unix_socket_write(int fd, const void* buf, std::size_t len);
// Closes fd when it is 1 or more; 0 otherwise.
int unix_socket_close(int fd);
