// The system tests also run against the target build's daemon under qemu-arm ($TACTORD_DAEMON, ctest label
// target); a test that cannot serve the target skips there, saying why in one line.
#pragma once

#include <gtest/gtest.h>

#include "sim/daemon_process.h"

#define TACTORD_HOST_ONLY(reason) \
    do { if (emul::daemon_is_target()) GTEST_SKIP() << "not run against the target: " reason; } while (0)
