// Remote-screen client state visible to its tests and to the link's own
// threads.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/tactord_types.h"

// Written by the link's threads, read by the main loop and the control
// socket: plain flags, a stale read only delays a decision.
extern std::atomic<int> gs_ipcClientExist;
extern std::atomic<int> gs_ipcfd;
extern std::atomic<int> gs_ipcExtScrExist;

// Builds the agent frame for ev into buf (at least 40 bytes): the frame's
// length, or -1 (an event with no frame, a short buffer, or no usable IPC
// output for a pointer move). The last pointer position is kept here.
int build_ipc_frame(uint8_t* buf, std::size_t len, const tactord::input_event* ev);
// Forgets the link: never connected, default address, no version, pointer
// at 0,0.
void ipc_client_reset();
