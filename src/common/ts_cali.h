// Touchscreen calibration records: one private record per touchscreen seat,
// created by the device registry and looked up by the event pipeline.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

inline constexpr int TS_SEAT_MAX = 15;
inline constexpr int CALI_POINT_NUM = 5;
inline constexpr int CALI_PARAM_NUM = 7;

// Five points, all x first. Also a wire record (the calibration targets of a
// control message).
struct cali_point_s {
    std::array<int32_t, CALI_POINT_NUM> x;
    std::array<int32_t, CALI_POINT_NUM> y;
};
using cali_point_t = cali_point_s;
static_assert(sizeof(cali_point_s) == 40);
static_assert(offsetof(cali_point_s, x) == 0);
static_assert(offsetof(cali_point_s, y) == 20);

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

using cali_param_row = std::array<int, CALI_PARAM_NUM>;
// The last computed transform per seat (p6 0 = none).
extern std::array<cali_param_row, TS_SEAT_MAX> cal_param_dat;
// The fallback transform.
extern const cali_param_row DefaultCaliParam;

// The first record (seat order) that can be calibrated and serves screen
// scr; null when none does or scr is outside 0..14 (logged).
ts_priv_data_s* ts_get_cali_ts_private_data(int scr);
// The calibration steps, addressed by touchscreen seat. 0, or -1 for no
// record, -2 for a touchscreen that cannot be calibrated (enter) or is not
// calibrating (point).
int ts_enter_calibrate_mode(int scr);
// The user is about to touch target point (1..5).
int ts_get_cali_point(int scr, unsigned point);
int ts_quit_calibrate_mode(int scr);
// Computes the transform of the touchscreen serving screen scr from the five
// display targets and the five captured raw points and installs it. 0, or
// -1 bad argument, -2 not ready, -3 no solution, -4 invalid
// result; the previous transform stays on failure.
int ts_calibrate(int scr, const cali_point_s* display, unsigned w, unsigned h);
// Five-point least squares: out[0..6] (p6 = 65536). 0, -1 for a null
// argument, -2 when the raw points do not span a plane.
int ts_get_calibrate_result(const cali_point_s* display, const cali_point_s* raw, int* out);
