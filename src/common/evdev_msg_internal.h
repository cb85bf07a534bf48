// Seam of the evdev reader for its tests.
#pragma once

#include <sys/types.h>

// The read call of EvdevReadInput; ::read unless a test replaces it.
using evdev_read_fn = ssize_t (*)(int fd, void* buf, size_t len);
extern evdev_read_fn evdev_read;
