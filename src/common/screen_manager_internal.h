// Screen-model state visible to its tests and to the modules that walk it.
#pragma once

#include <array>
#include <atomic>

#include "common/screen_manager.h"

extern std::array<OutputDev, SCREEN_COUNT> output_devices;
extern ScrInfo screen_info;
extern std::array<ScrInfo, SCREEN_COUNT> double_screen;
// The base mode. Read by the cursor timer thread through
// get_current_multimode(); relaxed, a stale value only delays one decision.
extern std::atomic<int> current_mode;
extern int current_pos;
// The IPC bits, kept apart from the base mode (same thread rule).
extern std::atomic<int> gs_ipc_mode;
extern int gs_ipc_window_index;
extern int gs_orvel_cursor_flag;

// Puts every table back to its state before output_info_init (cut-out lists
// freed), for tests.
void screen_model_reset();
