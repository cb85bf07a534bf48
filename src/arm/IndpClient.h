// Client of the INDP display computer: a thread connects to it and, while the
// link lasts, the socket is screen 1's event receiver, so that it gets that
// screen's raw 16-byte input_event records. The INDP screen sends nothing the
// daemon uses; only the end of the link matters. This client and the agent
// link exclude each other: each thread stops for good when it finds the other
// connected.
#pragma once

#include <atomic>

inline constexpr const char* INDP_PEER_ADDR = "173.0.0.5";
inline constexpr int INDP_PORT = 12345;

// Connected flag and socket (0 when none), written by the INDP thread and the
// main loop, read by the agent link's thread.
extern std::atomic<int> gs_indpClientExist;
extern std::atomic<int> gs_indpfd;

// Starts the INDP thread: -1 ("create indp thread failed") when it cannot be
// created, else 0.
int InitArmIndpScreenClient();

// Ready: registers fd with the main loop and as screen 1's receiver.
// Disconnected: unregisters and closes it (run first from the receive
// handler, then again by the thread). Receive (main loop, para = fd): reads
// and drops what the peer sends, disconnecting at its end. Always 0.
void handleINDPReady(int fd);
void handleINDPDisconnected(int fd);
int indpMsgHandle(void* para);
