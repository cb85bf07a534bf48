#include "common/ts_cali.h"

#include <cmath>
#include <cstdint>
#include <limits>

#include "common/log.h"
#include "common/ts_cali_internal.h"
#include "msg_handle.h"

std::array<std::atomic<ts_priv_data_s*>, TS_SEAT_MAX> ts_dat{};
std::array<cali_param_row, TS_SEAT_MAX> cal_param_dat{};
const cali_param_row DefaultCaliParam = {-9007944, 17178, 413, 49222680, 38, -14163, 65536};

namespace {
// Frees a record that has just left the table once the main loop can no
// longer be using it (the event pipeline reads records without a lock).
void release_record(ts_priv_data_s* record)
{
    if (record == nullptr)
        return;
    monitor_wait_for_dispatch();
    delete record;
}

bool seat_ok(int seat)
{
    if (seat >= 0 && seat < TS_SEAT_MAX)
        return true;
    TLOG(LEVEL_ERROR, "Error, invalid param (usb seat %d)\n", seat);
    return false;
}
// The product of two integers in 32-bit arithmetic, wrapping as the
// calibration has always done for values above 46340.
float product(int32_t a, int32_t b)
{
    return static_cast<float>(static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b)));
}

// Truncation toward zero; a value outside the integer range (a nearly
// singular fit) saturates instead of being undefined, NaN gives 0.
int truncate(float v)
{
    if (std::isnan(v))
        return 0;
    if (v >= 2147483648.0F)
        return std::numeric_limits<int>::max();
    if (v <= -2147483648.0F)
        return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

// One axis of the fit: display values d against the raw points.
void fit_axis(const std::array<int32_t, CALI_POINT_NUM>& d, const cali_point_s& raw, float a, float b, float c,
              float e, float f, float i, int* p)
{
    float z = 0, zx = 0, zy = 0;
    for (int k = 0; k < CALI_POINT_NUM; ++k) {
        z += static_cast<float>(d[k]);
        zx += product(raw.x[k], d[k]);
        zy += product(raw.y[k], d[k]);
    }
    p[0] = truncate((a * z + b * zx + c * zy) * 65536);
    p[1] = truncate((b * z + e * zx + f * zy) * 65536);
    p[2] = truncate((c * z + f * zx + i * zy) * 65536);
}

// a * d == b * c, decided exactly: each factor is the difference of two
// 32-bit values (below 2^32 in size), so each product's size fits in 64
// unsigned bits and its sign is that of its factors.
bool same_product(int64_t a, int64_t d, int64_t b, int64_t c)
{
    const auto size = [](int64_t u, int64_t v) {
        return static_cast<uint64_t>(u < 0 ? -u : u) * static_cast<uint64_t>(v < 0 ? -v : v);
    };
    const int sign_ad = a == 0 || d == 0 ? 0 : ((a < 0) != (d < 0) ? -1 : 1);
    const int sign_bc = b == 0 || c == 0 ? 0 : ((b < 0) != (c < 0) ? -1 : 1);
    return sign_ad == sign_bc && size(a, d) == size(b, c);
}

// The raw points span a plane: some three of them have a non-zero
// determinant |1 x y|. Decided in integers, never from the single-precision
// sums, whose rounding leaves coincident points (five at (3001,1999)) with a
// large non-zero determinant.
bool points_span_plane(const cali_point_s& raw)
{
    int far = 1;  // a point other than the first
    while (far < CALI_POINT_NUM && raw.x[far] == raw.x[0] && raw.y[far] == raw.y[0])
        ++far;
    if (far == CALI_POINT_NUM)
        return false;  // all coincide
    const int64_t dx = static_cast<int64_t>(raw.x[far]) - raw.x[0];
    const int64_t dy = static_cast<int64_t>(raw.y[far]) - raw.y[0];
    for (int k = far + 1; k < CALI_POINT_NUM; ++k) {
        const int64_t kx = static_cast<int64_t>(raw.x[k]) - raw.x[0];
        const int64_t ky = static_cast<int64_t>(raw.y[k]) - raw.y[0];
        if (!same_product(dx, ky, dy, kx))
            return true;
    }
    return false;  // all on one line
}

void log_points(const char* fmt, const cali_point_s& p)
{
    log_write(LEVEL_DEBUG, "ts_calibrate", __LINE__, fmt, p.x[0], p.y[0], p.x[1], p.y[1], p.x[2], p.y[2], p.x[3],
              p.y[3], p.x[4], p.y[4]);
}

}  // namespace

int ts_set_private_data(int seat, ts_priv_data_s* record)
{
    if (record == nullptr) {
        TLOG(LEVEL_ERROR, "Error, invalid param (usb seat %d)\n", seat);
        return -1;
    }
    if (!seat_ok(seat))
        return -1;
    // A seat holds one record: a second touchscreen on the same seat (or a
    // repeated report) replaces the first one, which is released here so it
    // does not leak.
    release_record(ts_dat[seat].exchange(record));
    return 0;
}

ts_priv_data_s* ts_get_private_data(int seat)
{
    if (!seat_ok(seat))
        return nullptr;
    return ts_dat[seat].load(std::memory_order_acquire);
}

void ts_free_private_data(int seat)
{
    if (!seat_ok(seat))
        return;
    release_record(ts_dat[seat].exchange(nullptr));
}

ts_priv_data_s* ts_get_cali_ts_private_data(int scr)
{
    if (scr < 0 || scr >= TS_SEAT_MAX) {
        TLOG(LEVEL_ERROR, "Error, invalid param (scr %d)\n", scr);
        return nullptr;
    }
    for (int seat = 0; seat < TS_SEAT_MAX; ++seat) {
        ts_priv_data_s* rec = ts_dat[seat].load(std::memory_order_acquire);
        if (rec != nullptr && rec->ts_type == 0 && rec->scr_id == scr) {
            TLOG(LEVEL_DEBUG, "info, screen id:%d, sub id:%d...\n", scr, seat);
            return rec;
        }
    }
    return nullptr;
}

int ts_enter_calibrate_mode(int scr)
{
    ts_priv_data_s* rec = ts_get_private_data(scr);
    if (rec == nullptr) {
        TLOG(LEVEL_ERROR, "Error, touchscreen id error\n");
        return -1;
    }
    if (rec->ts_type != 0) {
        TLOG(LEVEL_ERROR, "Error, touchscreen can't be calibrated\n");
        return -2;
    }
    rec->scr_id = scr;
    rec->mode.store(1);
    return 0;
}

int ts_get_cali_point(int scr, unsigned point)
{
    ts_priv_data_s* rec = ts_get_private_data(scr);
    if (rec == nullptr || point == 0 || point > CALI_POINT_NUM) {
        TLOG(LEVEL_ERROR, "Error, touchscreen id or point id error\n");
        return -1;
    }
    if (rec->mode.load() != 1) {
        TLOG(LEVEL_ERROR, "Error, touchscreen mode error\n");
        return -2;
    }
    rec->cali_data.cur_id.store(static_cast<uint8_t>(point));
    return 0;
}

int ts_quit_calibrate_mode(int scr)
{
    ts_priv_data_s* rec = ts_get_private_data(scr);
    if (rec == nullptr) {
        TLOG(LEVEL_ERROR, "Error, touchscreen id error\n");
        return -1;
    }
    if (rec->mode.load() == 1) {
        rec->cali_data.flag.store(0);
        rec->mode.store(0);
        return 0;
    }
    TLOG(LEVEL_WARN, "Already quit calibrate mode\n");
    return 0;
}

int ts_calibrate(int scr, const cali_point_s* display, unsigned w, unsigned h)
{
    ts_priv_data_s* rec = ts_get_cali_ts_private_data(scr);
    // ts_id picks the parameter row: a record whose id is outside the table
    // is refused like a missing one.
    if (display == nullptr || rec == nullptr || w == 0 || h == 0 || rec->ts_id < 0 || rec->ts_id >= TS_SEAT_MAX) {
        TLOG(LEVEL_ERROR, "Error, input para error\n");
        return -1;
    }
    if (rec->mode.load() != 1 || rec->cali_data.flag.load() != 1) {
        TLOG(LEVEL_ERROR, "Error, ts calibration is not ready\n");
        return -2;
    }
    cali_point_s raw;
    {
        std::lock_guard<std::mutex> guard(rec->cali_data.cali_lock);
        raw = rec->cali_data.points;
    }
    TLOG(LEVEL_DEBUG, "###################calibrate###################\n");
    log_points("target point are p1:(%d,%d)  p2:(%d,%d)  p3:(%d,%d)  p4:(%d,%d)  p5:(%d,%d) \n", *display);
    log_points("raw point are p1:(%d,%d)  p2:(%d,%d)  p3:(%d,%d)  p4:(%d,%d)  p5:(%d,%d) \n", raw);

    cali_param_row& row = cal_param_dat[rec->ts_id];
    row = {};
    if (ts_get_calibrate_result(display, &raw, row.data()) != 0) {
        TLOG(LEVEL_ERROR, "Error, get calibrate result failure...\n");
        return -3;
    }
    if (row[6] == 0) {
        TLOG(LEVEL_ERROR, "calibrate param invalid,please calibrate again\n");
        return -4;
    }
    std::lock_guard<std::mutex> guard(rec->cali_lock);
    rec->cali_param = row;
    return 0;
}

int ts_get_calibrate_result(const cali_point_s* display, const cali_point_s* raw, int* out)
{
    if (display == nullptr || raw == nullptr || out == nullptr) {
        TLOG(LEVEL_ERROR, "Error, invalid param\n");
        return -1;
    }
    float n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    for (int k = 0; k < CALI_POINT_NUM; ++k) {
        n += 1.0F;
        sx += static_cast<float>(raw->x[k]);
        sy += static_cast<float>(raw->y[k]);
        sxx += product(raw->x[k], raw->x[k]);
        syy += product(raw->y[k], raw->y[k]);
        sxy += product(raw->x[k], raw->y[k]);
    }
    const float det = n * (sxx * syy - sxy * sxy) + sx * (sxy * sy - sx * syy) + sy * (sx * sxy - sy * sxx);
    // Degeneracy is decided exactly on the raw points (coincident or
    // collinear: -2, determinant 0); the float determinant only has to be
    // usable as a divisor.
    const bool degenerate = !points_span_plane(*raw);
    if (degenerate || det == 0.0F || !std::isfinite(det)) {
        TLOG(LEVEL_ERROR, "Error, ts_calibrate determinant is too small -- %f\n",
             degenerate ? 0.0 : static_cast<double>(det));
        return -2;
    }
    const float a = (sxx * syy - sxy * sxy) / det;
    const float b = (sxy * sy - sx * syy) / det;
    const float c = (sx * sxy - sy * sxx) / det;
    const float e = (n * syy - sy * sy) / det;
    const float f = (sx * sy - n * sxy) / det;
    const float i = (n * sxx - sx * sx) / det;
    fit_axis(display->x, *raw, a, b, c, e, f, i, out);
    fit_axis(display->y, *raw, a, b, c, e, f, i, out + 3);
    out[6] = 65536;
    return 0;
}
