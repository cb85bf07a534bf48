// The system tests run twice: against the host build's daemon and, with
// $TACTORD_DAEMON naming the arm build's, against the target's under
// qemu-arm (ctest label target). The harness and the emulation follow the
// daemon served; a test that cannot serve the target says why here.
#pragma once

#include <gtest/gtest.h>

#include "sim/daemon_process.h"

// Skips the rest of a test in the target run, with the reason in one line.
#define TACTORD_HOST_ONLY(reason)                                  \
    do {                                                           \
        if (emul::daemon_is_target())                              \
            GTEST_SKIP() << "not run against the target: " reason; \
    } while (0)
