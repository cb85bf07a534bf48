// Remote-screen client state visible to its tests, to the INDP client (which
// shares the link threads' time and socket helpers) and to the link's own
// threads.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include <netinet/in.h>

#include "common/tactord_types.h"

// Written by the link's threads, read by the main loop and the control
// socket: plain flags, a stale read only delays a decision.
extern std::atomic<int> gs_ipcClientExist;
extern std::atomic<int> gs_ipcfd;
extern std::atomic<int> gs_ipcExtScrExist;
// 1 from the start of a liveness period until a tick comes from the agent.
extern std::atomic<int> gs_ipcTick;

// Builds the agent frame for ev into buf (at least 40 bytes): the frame's
// length, or -1 (an event with no frame, a short buffer, or no usable IPC
// output for a pointer move). The last pointer position is kept here.
int build_ipc_frame(uint8_t* buf, std::size_t len, const tactord::input_event* ev);
// Forgets the link: never connected, default address, no version, pointer
// at 0,0, nothing held by the receive side.
void ipc_client_reset();

// Receive side of the link, used on the main loop only (and by a disconnect
// on the tick thread, under the socket lock).
inline constexpr std::size_t IPC_RECV_BUF_LEN = 56;
inline constexpr std::size_t IPC_SPLICE_BUF_LEN = 72;
struct ipc_rx_state {
    std::array<uint8_t, IPC_RECV_BUF_LEN> recv{};      // one read, then one whole frame
    std::array<uint8_t, IPC_SPLICE_BUF_LEN> splice{};  // bytes not yet parsed
    std::size_t splice_len = 0;
    uint32_t skip = 0;  // bytes still to come of a frame being thrown away
};
extern ipc_rx_state ipc_rx;
// Takes n bytes just read from the agent (at most IPC_RECV_BUF_LEN) and
// handles every whole frame: 0, or -1 when the splice buffer overflowed and
// was emptied.
int ipc_rx_feed(const uint8_t* data, std::size_t n);
// A window-size answer of total bytes (header included).
void handle_ipc_win_size_msg(const uint8_t* frame, std::size_t total);

// Time of the link threads (this client's tick thread and the INDP client's
// thread). Every pause and the connect wait is given in real milliseconds and
// divided by link_time_divisor: 1 in the daemon, larger in tests that must
// not wait for real seconds.
extern std::atomic<unsigned> link_time_divisor;
unsigned link_scaled_ms(unsigned ms);
// Pauses ms (scaled). False, at once, when the link threads are asked to stop.
bool link_sleep_ms(unsigned ms);
bool link_stop_requested();
// Starts a link thread and counts it until it ends; pthread_create's result.
int start_link_thread(void* (*entry)(void*));
// Called by a link thread as it ends.
void link_thread_done();
// Asks the link threads to end, waits until none runs and clears the request
// (tests: the daemon's threads run for the life of the process).
void link_threads_stop();
int link_threads_running();

// Local end of both links.
inline constexpr const char* LINK_LOCAL_ADDR = "173.0.0.3";
// Binds fd to LINK_LOCAL_ADDR, any port: 0 or -1.
int link_bind_local(int fd);
// Fills *addr with text and port; false when text is no IPv4 address.
bool link_peer_address(const char* text, int port, sockaddr_in* addr);
// recv_data, called again while it reports an interrupted or would-block
// read, a few times at most (the main loop called for a readable socket):
// its result, or -1 with errno EAGAIN when there is still nothing.
int link_recv(int fd, void* buf, int len);
// TCP_NODELAY on, read back; failures logged.
void link_set_nodelay(int fd);
