// The one path every record to a display client or a remote link takes:
// the control connections registered for a screen (and their replies), the
// agent link and the INDP link.
//
// Every record is first offered without waiting. A client that stops
// reading fills its socket: the first record that finds it full waits as
// long as send_data's bound allows, and from then on the daemon remembers
// the socket as full: each further record is offered once, without waiting,
// and dropped (and counted) when it finds no room, until the socket has room
// again. A client whose socket stays full for CLIENT_STALL_DROP_MS, reading
// nothing worth the name in that time, is disconnected and its screens
// released, as display servers do with clients that stop reading: one client
// must never hold up the input of all the others.
//
// Every function here runs with the loop lock held (LockIpcSocket): on the
// main loop, which holds it for its whole dispatch, or on another thread that
// takes it to send (the cursor timer, the scanner service towards the agent).
// That lock guards the table of full sockets.
#pragma once

#include <cstdint>

// How long a socket may stay full before its client is disconnected.
inline constexpr int64_t CLIENT_STALL_DROP_MS = 2000;

// Sends one whole record of len bytes to fd: len, or -1 (the record was not
// sent: the socket is full or broken). Waits only for a socket not yet known
// to be full.
int client_send(int fd, const void* buf, int len);

// True while fd is remembered as full.
bool client_send_stalled(int fd);

// Once per main-loop pass, before the loop waits: ends the episode of every
// socket that has room again (logging how many records it lost) and
// disconnects, through drop, every client whose socket has been full for
// CLIENT_STALL_DROP_MS or whose stream a cut record has spoilt. Returns the
// milliseconds until the next such decision is due, or -1 when none is
// pending.
int client_send_housekeeping(void (*drop)(int fd));

// fd is being closed: forget whatever is remembered about it.
void client_send_forget(int fd);
