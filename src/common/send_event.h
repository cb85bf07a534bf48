// Event output: every event that leaves the daemon towards a display client.
#pragma once

#include "common/tactord_types.h"

// Writes ev (16 bytes) to the socket of client 0..2, or hands it to the
// remote-screen conversion for the IPC screen when -t is 0. -1 when the
// client is not connected (or not a client); else the writer's result.
// Both senders go through client_send and so run under the loop lock
// (LockIpcSocket): the descriptor read from gs_clients cannot be closed and
// given to another program before the record is out.
int send_event(int client, tactord::input_event* ev);
// Writes ev to a descriptor; -1 for fd below 1. Logged under index fd + 5.
int send_event_by_fd(int fd, tactord::input_event* ev);
// Debug line describing ev, by type.
void debug_send_event(int index, const tactord::input_event* ev);
