// Thin access layer over evdev nodes: open, read (handing every event to the
// event pipeline), write and close.
#pragma once

#include "common/tactord_types.h"

struct _InputDev;

// Read-write, non-blocking. The descriptor, or -1 (logged).
int EvdevOpenDevice(const char* path);
// Monitor-list handler of an open node; dev is its _InputDev. -1 for null,
// else 0.
int EvdevReadInput(void* dev);
// Writes ev to the node in the kernel's record layout: -1 for a null
// argument, else the result of write.
int EvdevWrite(_InputDev* dev, tactord::input_event* ev);
void EvdevCloseDevice(int fd);
