// Registry tables, visible to the modules that walk them and to tests.
#pragma once

#include <array>
#include <atomic>

#include "common/inputdevice_manager.h"

// The hot-plug thread changes these while the event thread reads them; the
// registry has no lock of its own, so every slot and count is atomic.
extern std::array<std::atomic<_InputDev*>, INPUT_SEAT_MAX> input_info;  // seat n at n-1
extern std::array<std::atomic<_InputDev*>, NONUSB_INPUT_MAX> nonusb_input;
extern std::atomic<int> count_nonusb_input;
extern std::array<std::atomic<_InputDev*>, EXTERN_INPUT_MAX> extern_input;
extern std::atomic<int> count_exusb_input;
