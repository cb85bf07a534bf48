// Remote-screen client towards the agent on the external computer.
#pragma once

// The recursive socket lock (ipc_close_socket_lock): held by the main loop
// while it builds its descriptor set and runs the ready handlers, and by this
// client while it registers or drops its socket.
void LockIpcSocket();
void UnlockIpcSocket();

// Remote-screen client type from option -t: 0 converts IPC-screen events into
// mouse records, anything else sends raw input_event records.
extern int gs_ipcType;
