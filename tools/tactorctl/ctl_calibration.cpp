// tactorctl calibration ...: the five-point calibration steps, the seven
// parameters of a touchscreen, and saving and restoring the parameters of
// every touchscreen in a small text file (the daemon keeps nothing across a
// restart).
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "client/args.h"
#include "tactorctl/ctl.h"

namespace tools {
namespace {

using Params = CaliParams;
static_assert(std::tuple_size_v<Params> == CALI_PARAM_NUM);

int usage(CtlContext& ctx, const std::string& text)
{
    return ctx.fail(kExitUsage, text + " (see --help)");
}

// Touchscreen seats are 0..14 (0 is the board's own touchscreen).
std::optional<int> parse_seat(const std::vector<std::string>& args, std::size_t at)
{
    const auto n = at < args.size() ? parse_integer(args[at], 0, TS_SEAT_MAX - 1) : std::nullopt;
    return n ? std::optional<int>(static_cast<int>(*n)) : std::nullopt;
}

std::string params_text(const Params& p)
{
    std::string s;
    for (const int32_t v : p) {
        if (!s.empty())
            s += ' ';
        s += std::to_string(v);
    }
    return s;
}

// TYPE_CHECK_TS_TYPE: 0 when the seat's touchscreen can be calibrated. The
// daemon answers 1 also when the seat has no touchscreen.
std::optional<int32_t> seat_type(CtlContext& ctx, int seat)
{
    const auto answer = ctx.exchange(make_request(TYPE_CHECK_TS_TYPE, seat));
    if (!answer)
        return std::nullopt;
    if (!answer->reply) {
        ctx.fail(kExitFailed, "tactord sent no touchscreen type");
        return std::nullopt;
    }
    return answer->reply->data.ts_type;
}

// Refuses (reported) a seat without a touchscreen that can be calibrated.
bool calibratable(CtlContext& ctx, int seat)
{
    const auto type = seat_type(ctx, seat);
    if (type && *type != 0)
        ctx.fail(kExitFailed, "refused: seat " + std::to_string(seat) + " has no touchscreen that can be calibrated");
    return type && *type == 0;
}

// The parameters of every touchscreen that can be calibrated, by seat: one
// TYPE_GET_TS_CALI_PARA per screen number the daemon accepts, sent at once,
// then a fence (the daemon answers only the screens some touchscreen serves).
std::optional<std::map<int, Params>> read_all(CtlContext& ctx)
{
    ControlConnection* c = ctx.connect();
    if (c == nullptr)
        return std::nullopt;
    for (int scr = 0; scr < TS_SEAT_MAX; ++scr)
        if (!c->send(make_request(TYPE_GET_TS_CALI_PARA, scr)))
            return std::nullopt;
    if (!c->send(make_fence()))
        return std::nullopt;
    std::map<int, Params> out;
    for (int i = 0; i <= TS_SEAT_MAX; ++i) {
        SystemMsg rec;
        if (c->read_exact(&rec, sizeof rec, 3s) != ControlConnection::Read::ok)
            break;
        if (is_fence_reply(reinterpret_cast<const uint8_t*>(&rec)))
            return out;
        if (rec.type != TYPE_GET_TS_CALI_PARA)
            continue;
        Params p;
        std::copy_n(rec.data.ts_cali_para.begin(), CALI_PARAM_NUM, p.begin());
        out.emplace(rec.data.ts_cali_para[TS_CALI_PARA_INDEX], p);
    }
    ctx.fail(kExitFailed, "no answer from tactord on " + ctx.socket + " (the connection closed or timed out)");
    return std::nullopt;
}

int enter(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto seat = args.size() == 1 ? parse_seat(args, 0) : std::nullopt;
    if (!seat)
        return usage(ctx, "calibration enter takes a touchscreen seat 0..14");
    if (!calibratable(ctx, *seat))
        return kExitFailed;
    if (!ctx.exchange(make_request(TYPE_ENTER_TS_CALI_MODE, *seat)))
        return kExitFailed;
    ctx.say("seat " + args[0] + " is calibrating; from now on its touchscreen answers to screen " + args[0] +
            " (calibration compute " + args[0] + " ...)");
    return kExitOk;
}

int point(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto seat = args.size() == 2 ? parse_seat(args, 0) : std::nullopt;
    const auto n = args.size() == 2 ? parse_integer(args[1], 1, CALI_POINT_NUM) : std::nullopt;
    if (!seat || !n)
        return usage(ctx, "calibration point takes SEAT and a target 1..5");
    if (!calibratable(ctx, *seat))
        return kExitFailed;
    SystemMsg msg = make_request(TYPE_GET_TS_CALI_POINT, *seat);
    msg.data.nValue = static_cast<int32_t>(*n);
    if (!ctx.exchange(msg))
        return kExitFailed;
    ctx.say("the next touch on seat " + args[0] + " is target " + args[1] +
            " (tactord ignores this unless the seat is calibrating)");
    return kExitOk;
}

int quit(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto seat = args.size() == 1 ? parse_seat(args, 0) : std::nullopt;
    if (!seat)
        return usage(ctx, "calibration quit takes a touchscreen seat 0..14");
    if (!calibratable(ctx, *seat))
        return kExitFailed;
    if (!ctx.exchange(make_request(TYPE_QUIT_TS_CALI_MODE, *seat)))
        return kExitFailed;
    ctx.say("seat " + args[0] + " is back in normal mode");
    return kExitOk;
}

int type(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto seat = args.size() == 1 ? parse_seat(args, 0) : std::nullopt;
    if (!seat)
        return usage(ctx, "calibration type takes a touchscreen seat 0..14");
    const auto t = seat_type(ctx, *seat);
    if (!t)
        return kExitFailed;
    ctx.say("seat " + args[0] + (*t == 0 ? ": can be calibrated"
                                          : ": cannot be calibrated (type " + std::to_string(*t) +
                                                "; also said of a seat without a touchscreen)"));
    return kExitOk;
}

int compute(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto screen = !args.empty() ? parse_integer(args[0], 0, TS_SEAT_MAX - 1) : std::nullopt;
    SystemMsg msg = make_request(TYPE_CALI_TS, screen ? static_cast<int32_t>(*screen) : 0);
    TS_CALI& cali = msg.data.ts_cali_data;
    cali.displaysize_x = 1920;
    cali.displaysize_y = 1080;
    std::size_t targets = 0;
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--size") {
            const std::string* value = option_value(ctx, args, i);
            if (value == nullptr)
                return kExitUsage;
            const auto size = parse_list(*value, 2, 1, 65535);
            if (!size)
                return usage(ctx, "--size takes WIDTH,HEIGHT");
            cali.displaysize_x = static_cast<int32_t>((*size)[0]);
            cali.displaysize_y = static_cast<int32_t>((*size)[1]);
            continue;
        }
        const auto xy = parse_list(args[i], 2, 0, 65535);
        if (!xy || targets == CALI_POINT_NUM)
            return usage(ctx, "calibration compute takes SCREEN and five targets X,Y");
        cali.expect_point.x[targets] = static_cast<int32_t>((*xy)[0]);
        cali.expect_point.y[targets] = static_cast<int32_t>((*xy)[1]);
        ++targets;
    }
    if (!screen || targets != CALI_POINT_NUM)
        return usage(ctx, "calibration compute takes SCREEN and five targets X,Y");
    const auto answer = ctx.exchange(msg);
    if (!answer)
        return kExitFailed;
    if (!answer->reply)
        return ctx.fail(kExitFailed, "tactord sent no calibration result");
    const int result = answer->reply->data.ts_cali_data.result;
    if (result != 0)
        return ctx.fail(kExitFailed, "refused (" + std::to_string(result) + "): " + calibration_refusal(result) +
                                         (result == -1 ? " " + args[0] : ""));
    ctx.say("calibrated; the parameters are in force (calibration get " + args[0] + ")");
    return kExitOk;
}

int set(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto seat = args.size() == 1 + CALI_PARAM_NUM ? parse_seat(args, 0) : std::nullopt;
    if (!seat)
        return usage(ctx, "calibration set takes SEAT and seven parameters P0..P6");
    SystemMsg msg = make_request(TYPE_SET_TS_CALI_PARA);
    for (int i = 0; i < CALI_PARAM_NUM; ++i) {
        const auto v = parse_integer(args[static_cast<std::size_t>(i) + 1], INT32_MIN, INT32_MAX);
        if (!v)
            return usage(ctx, "calibration set: parameter '" + args[static_cast<std::size_t>(i) + 1] + "' is not a number");
        msg.data.ts_cali_para[static_cast<std::size_t>(i)] = static_cast<int32_t>(*v);
    }
    if (msg.data.ts_cali_para[6] == 0)
        return usage(ctx, "calibration set: P6 is the divisor and cannot be 0 (65536 is the usual scale)");
    msg.data.ts_cali_para[TS_CALI_PARA_INDEX] = *seat;
    if (!ctx.exchange(msg))
        return kExitFailed;
    ctx.say("seat " + args[0] + ": parameters set");
    return kExitOk;
}

int get(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto screen = args.size() == 1 ? parse_integer(args[0], 0, TS_SEAT_MAX - 1) : std::nullopt;
    if (!screen)
        return usage(ctx, "calibration get takes a screen number 0..14");
    const auto answer = ctx.exchange(make_request(TYPE_GET_TS_CALI_PARA, static_cast<int32_t>(*screen)));
    if (!answer)
        return kExitFailed;
    if (!answer->reply)
        return ctx.fail(kExitFailed, "refused: no touchscreen that can be calibrated serves screen " + args[0]);
    const auto& p = answer->reply->data.ts_cali_para;
    Params params;
    std::copy_n(p.begin(), CALI_PARAM_NUM, params.begin());
    ctx.say("seat " + std::to_string(p[TS_CALI_PARA_INDEX]) + ": " + params_text(params));
    return kExitOk;
}

int save(CtlContext& ctx, const std::vector<std::string>& args)
{
    if (args.size() != 1)
        return usage(ctx, "calibration save takes a file name");
    const auto all = read_all(ctx);
    if (!all)
        return kExitFailed;
    std::map<int, Params> calibrated;
    for (const auto& [seat, params] : *all) {
        if (params[6] == 0) {
            ctx.say("seat " + std::to_string(seat) + ": not calibrated, left out");
            continue;
        }
        calibrated.emplace(seat, params);
        ctx.say("seat " + std::to_string(seat) + ": " + params_text(params));
    }
    if (!write_calibration_file(ctx, args[0], calibrated))
        return kExitFailed;
    ctx.say("saved " + std::to_string(calibrated.size()) + " touchscreen(s) to " + args[0]);
    return kExitOk;
}

int restore(CtlContext& ctx, const std::vector<std::string>& args)
{
    if (args.size() != 1)
        return usage(ctx, "calibration restore takes a file name");
    std::ifstream f(args[0]);
    if (!f)
        return ctx.fail(kExitFailed, "cannot read " + args[0]);
    std::map<int, Params> wanted;
    std::string line;
    for (int number = 1; std::getline(f, line); ++number) {
        std::istringstream words(line);
        std::vector<std::string> w;
        for (std::string word; words >> word;)
            w.push_back(word);
        if (w.empty() || w[0][0] == '#')
            continue;
        const std::string where = args[0] + ":" + std::to_string(number) + ": ";
        const auto seat = w.size() == 1 + CALI_PARAM_NUM ? parse_seat(w, 0) : std::nullopt;
        if (!seat)
            return ctx.fail(kExitUsage, where + "expected a seat 0..14 and seven parameters");
        Params p{};
        for (std::size_t i = 0; i < p.size(); ++i) {
            const auto v = parse_integer(w[i + 1], INT32_MIN, INT32_MAX);
            if (!v)
                return ctx.fail(kExitUsage, where + "'" + w[i + 1] + "' is not a number");
            p[i] = static_cast<int32_t>(*v);
        }
        if (p[6] == 0)
            return ctx.fail(kExitUsage, where + "p6 is the divisor and cannot be 0");
        wanted[*seat] = p;
    }
    for (const auto& [seat, params] : wanted) {
        SystemMsg msg = make_request(TYPE_SET_TS_CALI_PARA);
        std::copy(params.begin(), params.end(), msg.data.ts_cali_para.begin());
        msg.data.ts_cali_para[TS_CALI_PARA_INDEX] = seat;
        if (!ctx.exchange(msg))
            return kExitFailed;
    }
    const auto now = read_all(ctx);
    if (!now)
        return kExitFailed;
    int status = kExitOk;
    for (const auto& [seat, params] : wanted) {
        const auto it = now->find(seat);
        if (it == now->end()) {
            // Kept in the daemon's table of the seat, which a touchscreen
            // plugged in later converts with.
            ctx.say("seat " + std::to_string(seat) + ": stored; no touchscreen that can be calibrated is on the seat now");
        } else if (it->second == params) {
            ctx.say("seat " + std::to_string(seat) + ": restored");
        } else {
            status = ctx.fail(kExitFailed, "seat " + std::to_string(seat) + ": tactord kept " + params_text(it->second));
        }
    }
    if (wanted.empty())
        ctx.say("nothing to restore in " + args[0]);
    return status;
}

}  // namespace

std::string calibration_refusal(int result)
{
    switch (result) {
    case -1: return "no touchscreen that can be calibrated serves screen";
    case -2: return "not ready: enter calibration and touch all five targets first";
    case -3: return "the five touched points do not span a plane";
    case -4: return "the result is not usable, calibrate again";
    default: return "unknown reason";
    }
}

bool write_calibration_file(CtlContext& ctx, const std::string& file, const std::map<int, Params>& seats)
{
    std::ostringstream text;
    text << "# tactord touchscreen calibration (tactorctl calibration save); tactorctl calibration restore sets it\n"
            "# seat p0 p1 p2 p3 p4 p5 p6\n";
    for (const auto& [seat, params] : seats)
        text << seat << ' ' << params_text(params) << '\n';
    // Written beside the file and renamed over it: a reader never sees half a file.
    const std::string tmp = file + ".tmp";
    {
        std::ofstream f(tmp, std::ios::trunc);
        f << text.str();
        if (!f.flush()) {
            ctx.fail(kExitFailed, "cannot write " + tmp);
            return false;
        }
    }
    if (std::rename(tmp.c_str(), file.c_str()) != 0) {
        std::remove(tmp.c_str());
        ctx.fail(kExitFailed, "cannot write " + file);
        return false;
    }
    return true;
}

void add_calibration_commands(std::vector<Command>& t)
{
    t.push_back({{"calibration", "enter"}, "SEAT",
                 "TYPE_ENTER_TS_CALI_MODE: starts the five-point calibration of the touchscreen on SEAT (0 is the\n"
                 "board's own). Its raw values then reach the screen's client unconverted but scaled to\n"
                 "1920 x 1080, and the touchscreen answers to screen number SEAT for compute and get.\n"
                 "tactorctl calibrate does all the steps with on-screen targets.",
                 enter});
    t.push_back({{"calibration", "point"}, "SEAT N",
                 "TYPE_GET_TS_CALI_POINT: the next touch on the seat's touchscreen is target N (1..5).", point});
    t.push_back({{"calibration", "compute"}, "SCREEN X1,Y1 X2,Y2 X3,Y3 X4,Y4 X5,Y5 [--size W,H]",
                 "TYPE_CALI_TS: computes and installs the transform from the five display targets (in screen\n"
                 "pixels) and the five touches captured; says why when tactord refuses.",
                 compute});
    t.push_back({{"calibration", "quit"}, "SEAT", "TYPE_QUIT_TS_CALI_MODE: ends calibration mode.", quit});
    t.push_back({{"calibration", "type"}, "SEAT",
                 "TYPE_CHECK_TS_TYPE: whether the seat's touchscreen can be calibrated.", type});
    t.push_back({{"calibration", "set"}, "SEAT P0 P1 P2 P3 P4 P5 P6",
                 "TYPE_SET_TS_CALI_PARA: sets the seven parameters: X = (P0 + P1 x + P2 y) / P6,\n"
                 "Y = (P3 + P4 x + P5 y) / P6 for a raw point (x, y).",
                 set});
    t.push_back({{"calibration", "get"}, "SCREEN",
                 "TYPE_GET_TS_CALI_PARA: prints the seat and parameters of the touchscreen that can be calibrated\n"
                 "and serves SCREEN.",
                 get});
    t.push_back({{"calibration", "save"}, "FILE",
                 "Writes the parameters of every calibrated touchscreen to FILE, one line per seat.", save});
    t.push_back({{"calibration", "restore"}, "FILE",
                 "Sets the parameters kept in FILE again (run it at boot: tactord persists nothing). A seat\n"
                 "whose touchscreen is not there yet keeps them for when it appears.",
                 restore});
}

}  // namespace tools
