// Test seams of the touchscreen lock control.
#pragma once

#include <ctime>

#include "vr_os.h"

// The clock of the timed lock logic (whole seconds); null restores time().
using ts_clock_fn = time_t (*)();
void touchscreen_set_clock(ts_clock_fn clock);

// What starts the "touchscreen process" task (same contract as
// VR_CreateTask); null restores VR_CreateTask.
using ts_task_starter_fn = int (*)(VR_TASK_ID* id, const char* name, VR_TASK_ENTRY entry, void* arg,
                                   uint32_t stack_size, int priority);
void touchscreen_set_task_starter(ts_task_starter_fn starter);

inline constexpr const char* TS_TASK_NAME = "touchscreen process";
inline constexpr uint32_t TS_TASK_STACK = 102400;
inline constexpr int TS_TASK_PRIORITY = 15;
