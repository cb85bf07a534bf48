// Touchscreen calibration records: one private record per touchscreen seat,
// created by the device registry and looked up by the event pipeline.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>

inline constexpr int TS_SEAT_MAX = 15;
inline constexpr int CALI_POINT_NUM = 5;
inline constexpr int CALI_PARAM_NUM = 7;

// Five points, all x first.
struct cali_point_s {
    std::array<int, CALI_POINT_NUM> x;
    std::array<int, CALI_POINT_NUM> y;
};

struct calibrate_data_s {
    std::atomic<int> flag{0};        // 1 = all five raw points captured
    cali_point_s points{};           // the raw points
    std::atomic<uint8_t> cur_id{0};  // target being touched, 1..5; 0 = none
    // Guards points between the event thread (capture) and the control
    // thread (calibration).
    std::mutex cali_lock;
};

struct ts_priv_data_s {
    int ts_id = 0;   // seat index, also the row of the parameter table
    int scr_id = 0;  // screen the touchscreen serves
    std::array<int, CALI_PARAM_NUM> cali_param{};  // the transform in use
    calibrate_data_s cali_data;
    // Guards cali_param between the control thread (calibrate, set) and the
    // event thread (convert).
    std::mutex cali_lock;
    std::atomic<int> mode{0};  // 0 = normal, 1 = calibrating
    int ts_type = 0;           // 0 = can be calibrated; anything else refuses
};

// Stores record for seat (0..14). Returns 0, or -1 (logged) for a bad seat or
// a null record; the caller keeps ownership on failure.
int ts_set_private_data(int seat, ts_priv_data_s* record);
// The seat's record or null; a seat outside 0..14 is logged.
ts_priv_data_s* ts_get_private_data(int seat);
// Frees the seat's record and clears the slot.
void ts_free_private_data(int seat);
