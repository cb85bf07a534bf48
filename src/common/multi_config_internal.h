// Seat tables, visible to their tests.
#pragma once

#include <array>

#include "common/multi_config.h"

extern std::array<_device_seat, DEVICE_SEAT_MAX> device_seats;
extern std::array<_device_seat, OUTPUT_SEAT_MAX> output_seats;
extern std::array<_DeviceMatchRec, TERMINAL_MAX> terminals;

// Empties the port tables and frees their path copies (the terminals stay).
void release_seat_rows();
