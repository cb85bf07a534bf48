// Calibration tables visible to their tests.
#pragma once

#include <array>
#include <atomic>

#include "common/ts_cali.h"

// One record per seat. The slots are atomic: the hot-plug thread sets and
// frees them while the event thread looks them up.
extern std::array<std::atomic<ts_priv_data_s*>, TS_SEAT_MAX> ts_dat;
