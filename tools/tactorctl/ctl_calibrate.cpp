// tactorctl calibrate: the guided five-point calibration of a touchscreen,
// and its test mode. The tool drives the daemon's calibration messages,
// registers as the display client of the touchscreen's screen to see each
// touch arrive, shows the targets (in the terminal, and as crosshairs on the
// framebuffer with --fb), and judges the fit by the distance between each
// target and where the installed transform puts its touch.
#include <linux/input.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "client/args.h"
#include "client/monitor.h"
#include "common/inputevent_handle.h"
#include "common/ts_cali.h"
#include "tactorctl/ctl.h"
#include "tactorctl/devices.h"
#include "tactorctl/framebuffer.h"

namespace tools {

namespace {

// A 12-bit controller, assumed when the node's ranges cannot be read.
constexpr int kPanelMax = 4095;

struct Options {
    std::string target;  // seat number, or main/sub
    std::string fb;
    std::string save;
    std::string conf;
    std::optional<std::vector<long long>> size;
    std::chrono::milliseconds timeout{60000};  // per target; in --test, the whole run
    bool test = false;
    long count = -1;  // --test: stop after this many touches
};

struct Point {
    int x = 0;
    int y = 0;
};

// A whole touch (press to release) among the screen's records: where it
// was last reported. Null on time-out or a closed connection; each position
// reported while the finger is down goes to moved.
template <typename Moved>
std::optional<Point> next_touch(CtlContext& ctx, ControlConnection& c, int screen, std::chrono::milliseconds timeout,
                                bool& told_held, Moved moved)
{
    const auto start = std::chrono::steady_clock::now();
    const auto deadline = start + timeout;
    Point at;
    bool down = false;
    bool changed = false;
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline || ctl_interrupted())
            return std::nullopt;
        // Short waits, to notice Ctrl-C.
        const auto slice = std::min(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now),
                                    std::chrono::milliseconds(200));
        union {
            SystemMsg reply;
            tactord::input_event ev;
            uint8_t bytes[sizeof(SystemMsg)];
        } rec;
        const auto got = c.read_exact(rec.bytes, sizeof rec.ev, slice);
        if (got == ControlConnection::Read::closed)
            return std::nullopt;
        if (got == ControlConnection::Read::timeout) {
            if (!told_held && std::chrono::steady_clock::now() - start >= kHeldAfter) {
                told_held = true;
                std::fprintf(ctx.err, "tactorctl: %s\n", screen_held_hint(screen).c_str());
            }
            continue;
        }
        told_held = true;  // records arrive: the screen is ours
        if (is_fence_reply(rec.bytes)) {
            if (c.read_exact(rec.bytes + sizeof rec.ev, sizeof(SystemMsg) - sizeof rec.ev, 3s) != ControlConnection::Read::ok)
                return std::nullopt;
            continue;
        }
        const tactord::input_event& ev = rec.ev;
        if (ev.type == EV_ABS && (ev.code == ABS_X || ev.code == ABS_Y)) {
            (ev.code == ABS_X ? at.x : at.y) = ev.value;
            changed = true;
        } else if (ev.type == EV_KEY && (ev.code == BTN_TOUCH || ev.code == BTN_LEFT)) {
            // tactord hands a single touch to its client as the left button.
            if (ev.value == 0 && down)
                return at;
            down = ev.value != 0;
        } else if (ev.type == EV_SYN && ev.code == SYN_REPORT && down && changed) {
            changed = false;
            moved(at);
        }
    }
}

std::optional<Options> parse(CtlContext& ctx, const std::vector<std::string>& args)
{
    Options o;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--test") {
            o.test = true;
            continue;
        }
        if (a.rfind("--", 0) != 0) {
            if (!o.target.empty()) {
                usage_error(ctx, "unexpected argument '" + a + "'");
                return std::nullopt;
            }
            o.target = a;
            continue;
        }
        if (a != "--fb" && a != "--save" && a != "--conf" && a != "--size" && a != "--timeout" && a != "--count") {
            usage_error(ctx, "unknown option '" + a + "'");
            return std::nullopt;
        }
        const std::string* v = option_value(ctx, args, i);
        if (v == nullptr)
            return std::nullopt;
        if (a == "--fb") {
            o.fb = *v;
        } else if (a == "--save") {
            o.save = *v;
        } else if (a == "--conf") {
            o.conf = *v;
        } else if (a == "--size") {
            o.size = parse_list(*v, 2, 1, 65535);
            if (!o.size) {
                usage_error(ctx, "--size takes WIDTH,HEIGHT");
                return std::nullopt;
            }
        } else if (a == "--count") {
            const auto n = parse_integer(*v, 1, INT32_MAX);
            if (!n) {
                usage_error(ctx, "--count takes a number of touches");
                return std::nullopt;
            }
            o.count = *n;
        } else {
            const auto s = parse_seconds(*v, 86400);
            if (!s || *s <= 0) {
                usage_error(ctx, "--timeout takes seconds");
                return std::nullopt;
            }
            o.timeout = std::chrono::milliseconds(static_cast<long long>(*s * 1000));
        }
    }
    if (o.target.empty()) {
        usage_error(ctx, "calibrate needs a touchscreen seat (0..14) or a screen (main, sub)");
        return std::nullopt;
    }
    return o;
}

// The touchscreen to calibrate: by seat, or the first on the screen named.
std::optional<ListedDevice> find_touchscreen(CtlContext& ctx, const Options& o)
{
    std::string error;
    if (!load_seat_file(o.conf, error))
        std::fprintf(ctx.err, "tactorctl: %s\n", error.c_str());
    const std::vector<ListedDevice> list = list_devices();
    unload_seat_file();
    const auto screen = o.target == "main" || o.target == "sub" ? parse_screen(o.target) : std::nullopt;
    const auto seat = screen ? std::nullopt : parse_integer(o.target, 0, TS_SEAT_MAX - 1);
    if (!screen && !seat) {
        usage_error(ctx, "'" + o.target + "' is neither a touchscreen seat 0..14 nor a screen (main, sub)");
        return std::nullopt;
    }
    for (const ListedDevice& d : list)
        if (d.handled && d.cali_seat >= 0 && (screen ? d.screen == *screen : d.cali_seat == *seat))
            return d;
    ctx.fail(kExitFailed, (screen ? "no touchscreen that needs calibration feeds screen " + o.target
                                  : "seat " + o.target + " has no touchscreen that needs calibration") +
                              " (tactorctl devices lists them)");
    return std::nullopt;
}

// The framebuffer asked for, or null when none was (failure reported).
bool open_fb(CtlContext& ctx, const Options& o, std::optional<Framebuffer>& fb)
{
    if (o.fb.empty())
        return true;
    std::string error;
    auto opened = Framebuffer::open(o.fb, error);
    if (!opened)
        return ctx.fail(kExitFailed, error), false;
    fb.emplace(std::move(*opened));
    return true;
}

std::optional<CaliParams> read_params(CtlContext& ctx, int seat)
{
    const auto answer = ctx.exchange(make_request(TYPE_GET_TS_CALI_PARA, seat));
    if (!answer || !answer->reply) {
        if (answer)
            ctx.fail(kExitFailed, "tactord sent no parameters for seat " + std::to_string(seat));
        return std::nullopt;
    }
    CaliParams p{};
    std::copy_n(answer->reply->data.ts_cali_para.begin(), p.size(), p.begin());
    return p;
}

bool set_params(CtlContext& ctx, int seat, const CaliParams& p)
{
    SystemMsg msg = make_request(TYPE_SET_TS_CALI_PARA);
    std::copy(p.begin(), p.end(), msg.data.ts_cali_para.begin());
    msg.data.ts_cali_para[TS_CALI_PARA_INDEX] = seat;
    return ctx.exchange(msg).has_value();
}

// Where the transform puts a raw point: the daemon's own computation (p6 is
// set, so the seat's table is not looked at).
Point convert(int seat, const CaliParams& p, int x, int y)
{
    Point out{};
    coordinate_convert(seat, x, y, p.data(), &out.x, &out.y);
    return out;
}

std::string xy(Point p)
{
    return std::to_string(p.x) + "," + std::to_string(p.y);
}

std::string tenths(double v)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", std::min(v, 1e9));
    return text;
}

// The five targets, a tenth of the screen in from its edges and the centre.
std::array<Point, CALI_POINT_NUM> targets(int w, int h)
{
    const int mx = w / 10;
    const int my = h / 10;
    return {{{mx, my}, {w - 1 - mx, my}, {w - 1 - mx, h - 1 - my}, {mx, h - 1 - my}, {w / 2, h / 2}}};
}

int run_test(CtlContext& ctx, const Options& o, ControlConnection& c, int screen, std::optional<Framebuffer>& fb)
{
    ctx.say("touch the screen: each position is printed" + std::string(fb ? " and followed by a crosshair" : "") +
            (o.count > 0 ? "; ends after " + std::to_string(o.count) + " touch(es)" : ""));
    bool told = false;
    const auto end = std::chrono::steady_clock::now() + o.timeout;
    for (long n = 0; o.count < 0 || n < o.count; ++n) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        const auto touch = next_touch(ctx, c, screen, left, told, [&](Point at) {
            ctx.say("at " + xy(at));
            if (fb)
                fb->crosshair(at.x, at.y);
        });
        if (!touch)
            break;
        ctx.say("released at " + xy(*touch));
    }
    return kExitOk;
}

int calibrate(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto o = parse(ctx, args);
    if (!o)
        return kExitUsage;
    const auto ts = find_touchscreen(ctx, *o);
    if (!ts)
        return kExitFailed;
    std::optional<Framebuffer> fb;
    if (!open_fb(ctx, *o, fb))
        return kExitFailed;
    ControlConnection* c = ctx.connect();
    if (c == nullptr)
        return kExitFailed;
    // Registered as the screen's display client, the connection sees the
    // touches; the replies of later requests arrive on it as well.
    if (!ctx.exchange(make_request(TYPE_INPUT_INIT, ts->screen)))
        return kExitFailed;
    if (o->test)
        return run_test(ctx, *o, *c, ts->screen, fb);

    const int seat = ts->cali_seat;
    int w = o->size ? static_cast<int>((*o->size)[0]) : 0;
    int h = o->size ? static_cast<int>((*o->size)[1]) : 0;
    if (fb && !o->size) {
        w = static_cast<int>(fb->width());
        h = static_cast<int>(fb->height());
    }
    if (w == 0)
        return usage_error(ctx, "calibrate needs the screen's size: --fb /dev/fb0 or --size WIDTH,HEIGHT");
    const auto type = ctx.exchange(make_request(TYPE_CHECK_TS_TYPE, seat));
    if (!type)
        return kExitFailed;
    if (!type->reply || type->reply->data.ts_type != 0)
        return ctx.fail(kExitFailed, "refused: tactord cannot calibrate seat " + std::to_string(seat));
    if (!ctx.exchange(make_request(TYPE_ENTER_TS_CALI_MODE, seat)))
        return kExitFailed;
    // From here on, every way out leaves calibration mode and the screen clean.
    const auto finish = [&](int status) {
        if (fb)
            fb->clear();
        if (ctx.exchange(make_request(TYPE_QUIT_TS_CALI_MODE, seat)))
            ctx.say("calibration mode ended");
        return status;
    };
    const auto before = read_params(ctx, seat);
    if (!before)
        return finish(kExitFailed);
    ctx.say("calibrating seat " + std::to_string(seat) + ": " + ts->node + " \"" + ts->name + "\" on screen " +
            std::to_string(ts->screen) + ", " + std::to_string(w) + "x" + std::to_string(h) + " pixels");

    const auto display = targets(w, h);
    std::array<Point, CALI_POINT_NUM> touched{};
    bool told = false;
    for (int i = 0; i < CALI_POINT_NUM; ++i) {
        SystemMsg point = make_request(TYPE_GET_TS_CALI_POINT, seat);
        point.data.nValue = i + 1;
        if (!ctx.exchange(point))
            return finish(kExitFailed);
        if (fb)
            fb->crosshair(display[i].x, display[i].y);
        ctx.say("target " + std::to_string(i + 1) + " of 5 at " + xy(display[i]) + ": touch its centre and lift the finger");
        const auto touch = next_touch(ctx, *c, ts->screen, o->timeout, told, [](Point) {});
        if (!touch)
            return finish(ctx.fail(kExitFailed, (ctl_interrupted() ? "interrupted at target " : "no touch for target ") +
                                                    std::to_string(i + 1) + "; the previous calibration stays in force"));
        touched[static_cast<std::size_t>(i)] = *touch;
    }
    if (fb)
        fb->clear();

    SystemMsg compute = make_request(TYPE_CALI_TS, seat);
    for (int i = 0; i < CALI_POINT_NUM; ++i) {
        compute.data.ts_cali_data.expect_point.x[static_cast<std::size_t>(i)] = display[i].x;
        compute.data.ts_cali_data.expect_point.y[static_cast<std::size_t>(i)] = display[i].y;
    }
    compute.data.ts_cali_data.displaysize_x = w;
    compute.data.ts_cali_data.displaysize_y = h;
    const auto answer = ctx.exchange(compute);
    if (!answer)
        return finish(kExitFailed);
    const int result = answer->reply ? answer->reply->data.ts_cali_data.result : -1;
    if (result != 0)
        return finish(ctx.fail(kExitFailed, "tactord refused the fit (" + std::to_string(result) +
                                                "): " + calibration_refusal(result)));
    const auto after = read_params(ctx, seat);
    if (!after || (*after)[6] == 0)
        return finish(after ? ctx.fail(kExitFailed, "tactord installed no transform") : kExitFailed);

    // The client saw the raw values scaled; back to the controller's units.
    const long long max_x = ts->abs_max_x > 0 ? ts->abs_max_x : kPanelMax;
    const long long max_y = ts->abs_max_y > 0 ? ts->abs_max_y : kPanelMax;
    // A fit is refused when a target lands farther than 2 % of the shorter
    // side (at least 8 pixels) from where it was touched: a touch that missed
    // its crosshair, not the panel's own error.
    const double limit = std::max(8.0, std::min(w, h) / 50.0);
    double worst = 0;
    int worst_at = 0;
    ctx.say("residual error after the fit, in pixels:");
    for (int i = 0; i < CALI_POINT_NUM; ++i) {
        const Point& s = touched[static_cast<std::size_t>(i)];
        const Point at = convert(seat, *after, static_cast<int>((s.x * max_x + CALI_SPAN_X / 2) / CALI_SPAN_X),
                                 static_cast<int>((s.y * max_y + CALI_SPAN_Y / 2) / CALI_SPAN_Y));
        const double off = std::hypot(at.x - display[i].x, at.y - display[i].y);
        ctx.say("  target " + std::to_string(i + 1) + " at " + xy(display[i]) + ": lands at " + xy(at) + ", " +
                tenths(off));
        if (off > worst) {
            worst = off;
            worst_at = i + 1;
        }
    }
    if (worst > limit) {
        const bool restored = set_params(ctx, seat, *before);
        return finish(ctx.fail(kExitFailed, "refused: target " + std::to_string(worst_at) + " lands " + tenths(worst) +
                                                " pixels from where it was touched (more than " + tenths(limit) +
                                                "): a touch missed its crosshair. " +
                                                (restored ? "The previous calibration is back in force"
                                                          : "Putting the previous calibration back failed") +
                                                "; calibrate again, touching each crosshair's centre."));
    }
    std::string params;
    for (const int32_t v : *after)
        params += " " + std::to_string(v);
    ctx.say("calibrated: seat " + std::to_string(seat) + params);
    if (!o->save.empty()) {
        if (!write_calibration_file(ctx, o->save, {{seat, *after}}))
            return finish(kExitFailed);
        ctx.say("saved to " + o->save + " (tactorctl calibration restore " + o->save + " sets it again)");
    }
    return finish(kExitOk);
}

int calibrate_test(CtlContext& ctx, const std::vector<std::string>& args)
{
    std::vector<std::string> all = args;
    all.push_back("--test");
    return calibrate(ctx, all);
}

}  // namespace

void add_calibrate_commands(std::vector<Command>& t)
{
    t.push_back({{"calibrate"}, "SEAT|main|sub [--fb /dev/fb0] [--size W,H] [--save FILE] [--timeout SECONDS] [--conf FILE]",
                 "Guided five-point calibration of a touchscreen that needs it, given by its seat (tactorctl\n"
                 "devices shows it) or by the screen it feeds. Enters calibration mode, shows each target's\n"
                 "position (with --fb also as a crosshair on the framebuffer, removed afterwards), waits for\n"
                 "its touch as the screen's display client, lets tactord compute the transform, prints each\n"
                 "target's residual error in pixels, refuses a bad fit (the previous calibration stays), and\n"
                 "ends calibration mode. --save FILE writes the result for calibration restore. The screen\n"
                 "size is the framebuffer's, else --size. --timeout is the wait per target (default 60 s).\n"
                 "Needs the screen free: tactord gives its touches to one display client only.",
                 calibrate});
    t.push_back({{"calibrate", "--test"}, "SEAT|main|sub [--fb /dev/fb0] [--count N] [--timeout SECONDS]",
                 "Checks a calibration: prints where each touch lands on the screen (and with --fb draws a\n"
                 "crosshair that follows the finger), until N touches or the time-out (default 60 s).",
                 calibrate_test});
}

}  // namespace tools
