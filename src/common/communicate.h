// Socket utilities shared by the control socket, the remote-screen and knob
// clients and the event output: local listening and client sockets, a TCP
// client, and bounded receive and send loops. Every failure is logged at
// error level and reported as -1 unless said otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

// Local (AF_UNIX) listening socket on path: any file there is removed first,
// backlog 5. A socket whose bind or listen fails is closed. -1 for a null path
// (not logged) or on failure.
int create_monitor(const char* path);
// accept() on a listening socket: the new descriptor, or -1 (errno kept).
// While descriptors run out (EMFILE, ENFILE) the failure is logged once a
// second at most.
int get_new_comming_client(int fd);
// Local stream client connected to path; on a failed connect the socket is
// left open and -1 returned.
int connect_monitor(const char* path);
// TCP client connected to ip (dotted text) and port (host order); -1 on
// failure (the socket is closed then).
int create_client_socket(const char* ip, int port);
int close_connect(int fd);

// One recv of at most len bytes: the count (a short read is returned as it
// is), 0 when the peer has closed, -1 on error. A would-block or interrupted
// read is retried up to 10 times, 10 ms apart.
int recv_data(int fd, void* buf, int len);
// Collects needlen bytes in at most 10 passes of recv_data, 10 ms apart:
// needlen, or 0 when the record could not be completed (peer closed, error,
// or passes used up).
int recv_need_len_data(int fd, void* buf, int len, int needlen);
// Sends all len bytes: len, or -1. A full socket is waited for at most 10
// times 20 ms over the whole call (errno EAGAIN when that ran out).
int send_data(int fd, const void* buf, int len);
// send_data that also tells how many bytes went out before it failed
// (*sent_out, when given): a record cut short leaves a stream unreadable.
int send_data_counted(int fd, const void* buf, int len, int* sent_out);

// Monotonic milliseconds: the clock of every deadline of the sockets' waits.
int64_t monotonic_ms();

// A deadline, ms from now, for every wait of recv_data and send_data on the
// calling thread while the object lives: a wait that would end after it is
// not made (the call fails as if its retries had run out). Nested limits take
// the sooner deadline; the outer one holds again when the inner ends. The
// main loop sets one for each dispatch, and every other holder of the loop
// lock one for its hold, so that no series of slow peers holds a pass for
// longer than these bounds.
class IoWaitLimit {
public:
    explicit IoWaitLimit(int ms);
    ~IoWaitLimit();
    IoWaitLimit(const IoWaitLimit&) = delete;
    IoWaitLimit& operator=(const IoWaitLimit&) = delete;

private:
    int64_t saved_;
};
