// Touchscreen calibration: seat checks, record lifetime, the five-point fit and the transform.
#include "common/ts_cali.h"

#include "common/evdev_msg.h"
#include "support/unit_common.h"

namespace {

TEST(TouchscreenData, ARecordReplacedOrFreedDuringTheEventPipelineLivesUntilThePassEnds)
{
    for (bool replace : {false, true}) {
        SCOPED_TRACE(replace ? "replaced" : "freed");
        ASSERT_EQ(ts_set_private_data(0, new ts_priv_data_s{}), 0);
        const ts_priv_data_s* held = ts_get_private_data(0);
        testsupport::UnitPeer node;
        const ::input_event raw{};
        ASSERT_TRUE(node.put(&raw, sizeof raw));
        _InputDev dev;
        dev.fd = node.daemon;
        ASSERT_EQ(add_monitor_handle(node.daemon, EvdevReadInput, &dev), 0);
        {
            std::atomic<int> mode{-1};
            testsupport::HeldDispatch pass(node.daemon, [&] { mode.store(held->mode.load()); });
            pass.go();
            replace ? void(ts_set_private_data(0, new ts_priv_data_s{})) : ts_free_private_data(0);
            EXPECT_TRUE(pass.finished() && mode.load() == 0);
        }
        remove_monitor_handle(node.daemon);
        ts_free_private_data(0);
    }
}

// A calibratable record on seat 0 serving screen 0, with its captured points.
struct CaliSeat {
    ts_priv_data_s* rec = new ts_priv_data_s{};
    explicit CaliSeat(const cali_point_s& raw)
    {
        ts_set_private_data(0, rec);
        rec->cali_data.points = raw;
    }
    ~CaliSeat()
    {
        ts_free_private_data(0);
        cal_param_dat = {};
    }
    void capture()
    {
        ASSERT_EQ(ts_enter_calibrate_mode(0), 0);
        for (unsigned p = 1; p <= 5; ++p)
            ASSERT_EQ(ts_get_cali_point(0, p), 0);
        rec->cali_data.flag.store(1);
    }
};

const cali_point_s kTargets = {{100, 1820, 1820, 100, 960}, {100, 100, 980, 980, 540}};

MATCHER_P(Within, tol, "") { return std::abs(std::get<0>(arg) - std::get<1>(arg)) <= tol; }
using XY = std::pair<int, int>;

// Conversion takes the given parameters, then the seat's row, then the default.
TEST(Calibration, TransformsAreRecoveredConversionFallsBackToTheDefaultAndRefusalsKeepThePreviousOne)
{
    struct Case {
        const char* name;
        cali_point_s raw;
        std::array<int, 7> want;
    } cases[] = {
        {"identity", kTargets, {0, 65536, 0, 0, 0, 65536, 65536}},
        {"affine: raw = (display - (10, 20)) * 2", {{180, 3620, 3620, 180, 1900}, {160, 160, 1920, 1920, 1040}}, {655360, 32768, 0, 1310720, 0, 32768, 65536}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CaliSeat seat(c.raw);
        seat.capture();
        ASSERT_EQ(ts_calibrate(0, &kTargets, 1920, 1080), 0);
        EXPECT_THAT(seat.rec->cali_param, testing::Pointwise(Within(65536 / 4), c.want));  // single-precision sums
        EXPECT_EQ(cal_param_dat[0], seat.rec->cali_param);
        int x = 0, y = 0;
        ASSERT_EQ(coordinate_convert(0, c.raw.x[4], c.raw.y[4], seat.rec->cali_param.data(), &x, &y), 0);
        EXPECT_TRUE(std::abs(x - 960) <= 1 && std::abs(y - 540) <= 1) << x << "," << y;
        EXPECT_TRUE(ts_quit_calibrate_mode(0) == 0 && seat.rec->mode.load() == 0);
    }
    testsupport::LogCapture log;
    const std::array<int, 7> own = {65536 * 10, 65536, 0, 0, 0, 65536, 65536};
    const std::array<int, 7> none{};
    const std::array<int, 7> wide = {0, 1 << 30, 0, INT32_MAX, INT32_MIN, INT32_MIN, 1};
    std::array<int, 7> wide_neg = wide;
    wide_neg[6] = -1;
    cal_param_dat[3] = {0, 2 * 65536, 0, 0, 0, 3 * 65536, 65536};
    // Overflowing the int range (X) or 64 bits (Y) saturates instead of wrapping; all-zero
    // parameters and a seat without a row take the default.
    const std::tuple<int, XY, const std::array<int, 7>*, XY> converts[] = {
        {3, {5, 6}, &own, {15, 6}}, {3, {5, 6}, &none, {10, 18}}, {4, {2048, 2048}, &none, {412, 309}},
        {-1, {2048, 2048}, &none, {412, 309}}, {3, {INT32_MIN, INT32_MIN}, &wide, {INT32_MIN, INT32_MAX}},
        {3, {INT32_MIN, INT32_MIN}, &wide_neg, {INT32_MAX, INT32_MIN}}};
    for (auto [seat, raw, param, want] : converts) {
        XY got;
        coordinate_convert(seat, raw.first, raw.second, param->data(), &got.first, &got.second);
        EXPECT_EQ(got, want) << seat << " " << raw.first;
    }
    EXPECT_TRUE(log.has("error cali param, please calibrate again! \n"));
    cal_param_dat = {};

    const cali_point_s same = {{500, 500, 500, 500, 500}, {700, 700, 700, 700, 700}};
    CaliSeat seat(same);
    seat.rec->cali_param = {1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(ts_calibrate(0, &kTargets, 1920, 1080), -2);  // not calibrating
    ASSERT_EQ(ts_enter_calibrate_mode(0), 0);
    EXPECT_EQ(ts_calibrate(0, &kTargets, 1920, 1080), -2);  // fifth point not captured
    seat.capture();
    // Coincident or collinear points, however the sums round: the fit gives -2, the calibration -3.
    std::array<int, 7> out{};
    const cali_point_s line = {{100, 1000, 2000, 3000, 4000}, {50, 500, 1000, 1500, 2000}};
    const cali_point_s at_3001_1999 = {{3001, 3001, 3001, 3001, 3001}, {1999, 1999, 1999, 1999, 1999}};
    const cali_point_s far = {{INT32_MIN + 1, INT32_MAX, 0, 5, -5}, {INT32_MAX, INT32_MIN + 1, 0, -5, 5}};
    for (const cali_point_s& raw : {same, line, at_3001_1999, far})
        EXPECT_EQ(ts_get_calibrate_result(&kTargets, &raw, out.data()), -2);
    cali_point_s off_line = line;
    off_line.y[4] += 1;
    EXPECT_EQ(ts_get_calibrate_result(&kTargets, &off_line, out.data()), 0);
    EXPECT_EQ(ts_calibrate(0, &kTargets, 1920, 1080), -3);
    EXPECT_TRUE(log.has("Error, get calibrate result failure...\n"));
    EXPECT_TRUE(log.has("Error, ts_calibrate determinant is too small -- 0.000000\n"));
    EXPECT_TRUE(ts_calibrate(0, &kTargets, 0, 1080) == -1 && ts_calibrate(0, nullptr, 1920, 1080) == -1);
    EXPECT_EQ(seat.rec->cali_param, (std::array<int, 7>{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_TRUE(ts_get_cali_point(0, 0) == -1 && ts_get_cali_point(0, 6) == -1);
    seat.rec->ts_type = 1;
    EXPECT_TRUE(ts_enter_calibrate_mode(0) == -2 && ts_get_cali_ts_private_data(0) == nullptr);
    ts_priv_data_s unowned;
    EXPECT_EQ(ts_set_private_data(15, &unowned), -1);
    ts_free_private_data(15);
    EXPECT_TRUE(ts_enter_calibrate_mode(15) == -1 && ts_get_cali_point(15, 1) == -1 && ts_quit_calibrate_mode(15) == -1);
    EXPECT_EQ(ts_get_cali_ts_private_data(15), nullptr);
    EXPECT_TRUE(log.has("Error, invalid param (scr 15)\n"));
    EXPECT_EQ(log.count("Error, invalid param (usb seat 15)\n"), 5);
}

}  // namespace
