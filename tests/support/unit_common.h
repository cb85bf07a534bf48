// What every unit test of the common modules includes: GoogleTest, the system and standard
// headers they use, and the shared helpers (log capture, scratch root, screen clients and socket
// pairs, held dispatch passes).
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "common/log.h"
#include "support/held_dispatch.h"
#include "support/log_capture.h"
#include "support/scratch_root.h"
#include "support/screen_clients.h"
