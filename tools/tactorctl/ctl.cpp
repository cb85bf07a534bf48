#include "tactorctl/ctl.h"

#include <arpa/inet.h>
#include <linux/input.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>

#include "client/args.h"
#include "client/input_names.h"
#include "arm/input_manager.h"
#include "common/OrvelClient.h"
#include "client/monitor.h"
#include "client/record_text.h"

namespace tools {

ControlConnection* CtlContext::connect()
{
    if (conn)
        return &*conn;
    std::string error;
    conn = ControlConnection::open(socket, wait, error);
    if (!conn) {
        fail(kExitFailed, error);
        return nullptr;
    }
    return &*conn;
}

int CtlContext::fail(int code, const std::string& text)
{
    std::fprintf(err, "tactorctl: %s\n", text.c_str());
    return code;
}

void CtlContext::say(const std::string& line)
{
    std::fprintf(out, "%s\n", line.c_str());
    std::fflush(out);  // a guided command talks to a person, line by line
}

std::optional<ControlConnection::Answer> CtlContext::exchange(const SystemMsg& msg)
{
    ControlConnection* c = connect();
    if (c == nullptr)
        return std::nullopt;
    ControlConnection::Answer answer = c->exchange(msg);
    if (!answer.ok) {
        fail(kExitFailed, "no answer from tactord on " + socket + " (the connection closed or timed out)");
        return std::nullopt;
    }
    return answer;
}

int usage_error(CtlContext& ctx, const std::string& text)
{
    return ctx.fail(kExitUsage, text + " (see --help)");
}

const std::string* option_value(CtlContext& ctx, const std::vector<std::string>& args, std::size_t& i)
{
    if (i + 1 >= args.size()) {
        usage_error(ctx, "option " + args[i] + " needs a value");
        return nullptr;
    }
    return &args[++i];
}

std::optional<int> parse_screen(std::string_view text)
{
    if (text == "main")
        return 0;
    if (text == "sub")
        return 1;
    const auto n = parse_integer(text, 0, 1);
    return n ? std::optional<int>(static_cast<int>(*n)) : std::nullopt;
}

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

void on_interrupt(int)
{
    g_interrupted = 1;
}

}  // namespace

void ctl_catch_interrupt()
{
    struct sigaction stop {};
    stop.sa_handler = on_interrupt;
    sigaction(SIGINT, &stop, nullptr);
    sigaction(SIGTERM, &stop, nullptr);
}

bool ctl_interrupted()
{
    return g_interrupted != 0;
}

namespace {

// Sends a request the daemon does not answer and reports it as done.
int send_plain(CtlContext& ctx, const SystemMsg& msg, const std::string& done)
{
    if (!ctx.exchange(msg))
        return kExitFailed;
    ctx.say(done);
    return kExitOk;
}

// ---- mode ----

int mode_get(CtlContext& ctx, const std::vector<std::string>&)
{
    const auto answer = ctx.exchange(make_request(TYPE_MODE_GET));
    if (!answer || !answer->reply)
        return answer ? ctx.fail(kExitFailed, "tactord sent no mode") : kExitFailed;
    ctx.say(mode_name(answer->reply->data.nValue));
    return kExitOk;
}

int mode_set(CtlContext& ctx, const std::vector<std::string>& args)
{
    if (args.empty())
        return usage_error(ctx, "mode set needs a mode: clone, extern or double-player");
    const auto base = parse_mode_word(args[0]);
    if (!base || *base == MODE_IPC_EXTERN)
        return usage_error(ctx, "unknown mode '" + args[0] + "': clone, extern or double-player");
    SystemMsg msg = make_request(TYPE_MODE_SET);
    MultiModeInfo& info = msg.data.mode_info;
    info.mode = *base;
    // Main screen left of the centre, sub screen in it: main left of sub.
    info.monitor_pos = {0, 0, 0, 1, 2, 0, 0, 0, 0};
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--ipc-extern") {
            info.mode |= MODE_IPC_EXTERN;
            continue;
        }
        if (args[i] != "--grid" && args[i] != "--screen")
            return usage_error(ctx, "unexpected argument '" + args[i] + "'");
        const std::string* value = option_value(ctx, args, i);
        if (value == nullptr)
            return kExitUsage;
        if (args[i - 1] == "--grid") {
            const auto cells = parse_list(*value, GRID_CELLS, 0, 3);
            if (!cells)
                return usage_error(ctx, "--grid takes nine cells 0..3 (0 empty, 1 main, 2 sub, 3 IPC screen)");
            std::copy(cells->begin(), cells->end(), info.monitor_pos.begin());
        } else {
            const auto screen = parse_screen(*value);
            if (!screen)
                return usage_error(ctx, "--screen takes 0 (main) or 1 (sub)");
            msg.scr_index = *screen;
        }
    }
    // The daemon takes any grid, but the cursor reaches only the screens
    // placed in it: an extended sub screen or IPC screen left out of the grid
    // could never be reached.
    const auto placed = [&](int cell) {
        return std::find(info.monitor_pos.begin(), info.monitor_pos.end(), cell) != info.monitor_pos.end();
    };
    if ((info.mode & MODE_EXTERN) != 0 && !(placed(1) && placed(2)))
        return usage_error(ctx, "the extern mode needs a grid with a main (1) and a sub (2) cell");
    if ((info.mode & MODE_IPC_EXTERN) != 0 && !placed(3))
        return usage_error(ctx, "--ipc-extern needs a grid with an IPC screen (3) cell");
    const auto answer = ctx.exchange(msg);
    if (!answer)
        return kExitFailed;
    ctx.say(mode_name(answer->mode));
    if ((answer->mode & info.mode) != info.mode)
        return ctx.fail(kExitFailed, "tactord did not take the mode: it is in " + mode_name(answer->mode));
    return kExitOk;
}

// ---- keyboard LEDs ----

int led(CtlContext& ctx, const std::vector<std::string>& args)
{
    static constexpr std::array<std::pair<const char*, uint16_t>, 3> kLeds = {
        {{"caps", LED_CAPSL}, {"num", LED_NUML}, {"scroll", LED_SCROLLL}}};
    if (args.size() < 2 || args.size() > 4)
        return usage_error(ctx, "led takes caps|num|scroll on|off [--screen N]");
    const auto it = std::find_if(kLeds.begin(), kLeds.end(), [&](const auto& l) { return args[0] == l.first; });
    if (it == kLeds.end() || (args[1] != "on" && args[1] != "off"))
        return usage_error(ctx, "led takes caps|num|scroll on|off");
    int screen = 0;
    if (args.size() == 3 && args[2] == "--screen")
        return usage_error(ctx, "option --screen needs a value");
    if (args.size() == 4) {
        const auto s = args[2] == "--screen" ? parse_screen(args[3]) : std::nullopt;
        if (!s)
            return usage_error(ctx, "--screen takes 0 (main) or 1 (sub)");
        screen = *s;
    }
    // The daemon lights the keyboards of the screen this connection is
    // registered for, so the connection registers first.
    ControlConnection* c = ctx.connect();
    if (c == nullptr || !c->send(make_request(TYPE_INPUT_INIT, screen)))
        return kExitFailed;
    SystemMsg msg = make_request(TYPE_LED_CTRL, screen);
    msg.data.evt = {0, 0, EV_LED, it->second, args[1] == "on" ? 1 : 0};
    return send_plain(ctx, msg,
                      std::string("sent: ") + it->first + " LED " + args[1] + " on the keyboards of screen " +
                          std::to_string(screen) + " (tactord does not answer; it acts only while no display client holds the screen)");
}

// ---- the IPC window ----

// X1 Y1 X2 Y2 at args[from..]; null (reported, naming the bad value) when
// they are not four pixel positions spanning a rectangle.
std::optional<RECT_BOX> parse_box(CtlContext& ctx, const std::string& command, const std::vector<std::string>& args,
                                  std::size_t from)
{
    static constexpr std::array<const char*, 4> kNames = {"X1", "Y1", "X2", "Y2"};
    if (args.size() != from + 4) {
        usage_error(ctx, command + " takes four corners X1 Y1 X2 Y2 after the screen");
        return std::nullopt;
    }
    std::array<long long, 4> v{};
    for (std::size_t i = 0; i < 4; ++i) {
        const auto n = parse_integer(args[from + i], 0, 65535);
        if (!n) {
            usage_error(ctx, command + ": " + kNames[i] + " '" + args[from + i] + "' is not a pixel position 0..65535");
            return std::nullopt;
        }
        v[i] = *n;
    }
    // Given as X1 Y1 X2 Y2; the record keeps both x values first.
    const RECT_BOX box{static_cast<int32_t>(v[0]), static_cast<int32_t>(v[2]), static_cast<int32_t>(v[1]),
                       static_cast<int32_t>(v[3])};
    if (box.x1 >= box.x2 || box.y1 >= box.y2) {
        usage_error(ctx, command + ": the rectangle needs X1 < X2 and Y1 < Y2");
        return std::nullopt;
    }
    return box;
}

// The screen word at args[at]; null (reported) when it is missing or bad.
std::optional<int> screen_argument(CtlContext& ctx, const std::string& command, const std::vector<std::string>& args,
                                   std::size_t at)
{
    const auto screen = at < args.size() ? parse_screen(args[at]) : std::nullopt;
    if (!screen)
        usage_error(ctx, command + ": " +
                             (at < args.size() ? "bad screen '" + args[at] + "'" : std::string("no screen given")) +
                             ", it takes 0 (main) or 1 (sub)");
    return screen;
}

std::optional<IpcWinInfo> window_info(CtlContext& ctx)
{
    const auto answer = ctx.exchange(make_request(TYPE_GET_IPC_WIN_INFO));
    if (!answer)
        return std::nullopt;
    if (!answer->reply) {
        ctx.fail(kExitFailed, "tactord sent no IPC window information");
        return std::nullopt;
    }
    return answer->reply->data.ipc_win_info;
}

std::string window_text(const IpcWinInfo& info)
{
    SystemMsg msg = make_request(TYPE_GET_IPC_WIN_INFO);
    msg.data.ipc_win_info = info;
    return "IPC window " + describe_reply(msg).substr(std::strlen("reply TYPE_GET_IPC_WIN_INFO: "));
}

int window_get(CtlContext& ctx, const std::vector<std::string>&)
{
    const auto info = window_info(ctx);
    if (!info)
        return kExitFailed;
    ctx.say(window_text(*info));
    return kExitOk;
}

int window_open(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto screen = screen_argument(ctx, "ipc-window open", args, 0);
    if (!screen)
        return kExitUsage;
    const auto box = parse_box(ctx, "ipc-window open", args, 1);
    if (!box)
        return kExitUsage;
    SystemMsg msg = make_request(TYPE_SET_IPC_WINDOW);
    msg.data.ipc_win_info = {1, *screen, *box};
    if (!ctx.exchange(msg))
        return kExitFailed;
    const auto info = window_info(ctx);
    if (!info)
        return kExitFailed;
    ctx.say(window_text(*info));
    return info->isIpcWin != 0 ? kExitOk : ctx.fail(kExitFailed, "tactord did not open the IPC window");
}

int window_close(CtlContext& ctx, const std::vector<std::string>& args)
{
    if (!args.empty())
        return usage_error(ctx, "ipc-window close takes no arguments");
    const auto before = window_info(ctx);
    if (!before)
        return kExitFailed;
    if (before->isIpcWin == 0)
        return ctx.fail(kExitFailed, "refused: no IPC window is open");
    SystemMsg msg = make_request(TYPE_SET_IPC_WINDOW);
    msg.data.ipc_win_info = {0, before->index, {}};
    if (!ctx.exchange(msg))
        return kExitFailed;
    const auto after = window_info(ctx);
    if (!after)
        return kExitFailed;
    ctx.say(window_text(*after));
    return after->isIpcWin == 0 ? kExitOk : ctx.fail(kExitFailed, "tactord kept the IPC window open");
}

int window_cutout(CtlContext& ctx, const std::vector<std::string>& args)
{
    static constexpr std::array<std::pair<const char*, int>, 3> kOps = {
        {{"del", OP_IPC_WIN_DEL}, {"add", OP_IPC_WIN_ADD}, {"clear", OP_IPC_WIN_CLR}}};
    const auto op = std::find_if(kOps.begin(), kOps.end(), [&](const auto& o) { return !args.empty() && args[0] == o.first; });
    if (op == kOps.end())
        return usage_error(ctx, "ipc-window cutout takes add|del SCREEN X1 Y1 X2 Y2, or clear SCREEN");
    const std::string command = std::string("ipc-window cutout ") + op->first;
    const auto found = screen_argument(ctx, command, args, 1);
    if (!found)
        return kExitUsage;
    const int screen = *found;
    std::optional<RECT_BOX> box = RECT_BOX{};
    if (op->second != OP_IPC_WIN_CLR)
        box = parse_box(ctx, command, args, 2);
    else if (args.size() != 2)
        return usage_error(ctx, "ipc-window cutout clear takes only SCREEN");
    if (!box)
        return kExitUsage;
    // The daemon refuses cut-outs of a screen without the IPC window (it
    // only logs that): ask first.
    const auto info = window_info(ctx);
    if (!info)
        return kExitFailed;
    if (info->isIpcWin == 0 || info->index != screen)
        return ctx.fail(kExitFailed, "refused: screen " + std::to_string(screen) + " has no IPC window");
    SystemMsg msg = make_request(TYPE_IPC_WINDOW, screen);
    msg.data.win = {op->second, *box};
    return send_plain(ctx, msg, std::string("cut-out ") + op->first + " done on screen " + std::to_string(screen));
}

// ---- the remote computer ----

int ipc_connected(CtlContext& ctx, const std::vector<std::string>&)
{
    const auto answer = ctx.exchange(make_request(TYPE_IPC_CONNECTED));
    if (!answer || !answer->reply)
        return answer ? ctx.fail(kExitFailed, "tactord sent no link state") : kExitFailed;
    ctx.say(answer->reply->data.ipc_connected == 1 ? "connected" : "not connected");
    return kExitOk;
}

int ipc_extended(CtlContext& ctx, const std::vector<std::string>&)
{
    const auto answer = ctx.exchange(make_request(TYPE_ORVEL_EXT_SCR_EXIST));
    if (!answer || !answer->reply)
        return answer ? ctx.fail(kExitFailed, "tactord sent no value") : kExitFailed;
    ctx.say("extended screen " + std::to_string(answer->reply->data.ipc_ext_scr_exist));
    return kExitOk;
}

int ipc_address(CtlContext& ctx, const std::vector<std::string>& args)
{
    in_addr addr{};
    if (args.size() != 1 || args[0].size() > 15 || inet_pton(AF_INET, args[0].c_str(), &addr) != 1)
        return usage_error(ctx, "ipc address takes a dotted IPv4 address");
    SystemMsg msg = make_request(TYPE_SET_IPC_IP);
    std::memcpy(msg.data.ip_addr.data(), args[0].c_str(), args[0].size());
    return send_plain(ctx, msg, "agent address " + args[0] + " (used at the next connection)");
}

int ipc_command(CtlContext& ctx, const std::vector<std::string>& args)
{
    static constexpr std::array<std::pair<const char*, int>, 5> kCmds = {{{"shutdown", CMD_SHUTDOWN},
                                                                          {"standby", CMD_STANDBY},
                                                                          {"reboot", CMD_REBOOT},
                                                                          {"wakeup", CMD_WAKEUP},
                                                                          {"resolution", CMD_SETTING_RESOLUTION}}};
    const auto cmd = std::find_if(kCmds.begin(), kCmds.end(), [&](const auto& c) { return !args.empty() && args[0] == c.first; });
    if (cmd == kCmds.end())
        return usage_error(ctx, "ipc command takes shutdown, standby, reboot, wakeup or resolution W H");
    SystemMsg msg = make_request(TYPE_SEND_IPC_CMD);
    msg.data.cmd = {cmd->second, 0, 0};
    if (cmd->second == CMD_SETTING_RESOLUTION) {
        const auto w = args.size() == 3 ? parse_integer(args[1], 1, 65535) : std::nullopt;
        const auto h = args.size() == 3 ? parse_integer(args[2], 1, 65535) : std::nullopt;
        if (!w || !h)
            return usage_error(ctx, "ipc command resolution takes a width and a height");
        msg.data.cmd.lParam = static_cast<int32_t>(*w);
        msg.data.cmd.rParam = static_cast<int32_t>(*h);
    } else if (args.size() != 1) {
        return usage_error(ctx, std::string("ipc command ") + cmd->first + " takes no values");
    }
    // The daemon drops a command while the link is down, and only logs it.
    const auto link = ctx.exchange(make_request(TYPE_IPC_CONNECTED));
    if (!link)
        return kExitFailed;
    if (!link->reply || link->reply->data.ipc_connected != 1)
        return ctx.fail(kExitFailed, "refused: the remote computer is not connected");
    return send_plain(ctx, msg, std::string("sent ") + cmd->first + " to the remote computer");
}

// ---- input and settings ----

int inject(CtlContext& ctx, const std::vector<std::string>& args)
{
    if (args.size() != 3)
        return usage_error(ctx, "inject takes TYPE CODE VALUE, e.g. inject EV_REL REL_X 10");
    const auto type = parse_event_type(args[0]);
    const auto code = type ? parse_event_code(*type, args[1]) : std::nullopt;
    const auto value = parse_integer(args[2], INT32_MIN, INT32_MAX);
    if (!type || !code || !value)
        return usage_error(ctx, "inject: unknown event '" + args[0] + " " + args[1] + " " + args[2] + "'");
    SystemMsg msg = make_request(TYPE_VNC_INPUT);
    msg.data.evt = {0, 0, *type, *code, static_cast<int32_t>(*value)};
    return send_plain(ctx, msg, "injected " + describe_event(msg.data.evt));
}

int direction(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto screen = args.size() == 2 ? parse_screen(args[0]) : std::nullopt;
    const auto value = args.size() == 2 ? parse_integer(args[1], INT32_MIN, INT32_MAX) : std::nullopt;
    if (!screen || !value)
        return usage_error(ctx, "direction takes SCREEN VALUE");
    SystemMsg msg = make_request(TYPE_SET_DIRECTION, *screen);
    msg.data.scr_direction = static_cast<int32_t>(*value);
    return send_plain(ctx, msg, "direction sent (this board ignores it)");
}

int cursor_timeout(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto seconds = args.size() == 1 ? parse_integer(args[0], 1, INT32_MAX) : std::nullopt;
    if (!seconds)
        return usage_error(ctx, "cursor-timeout takes whole seconds, 1 or more");
    SystemMsg msg = make_request(TYPE_SET_CURSOR_TIME);
    msg.data.hide_seconds = static_cast<int32_t>(*seconds);
    return send_plain(ctx, msg, "the cursor hides after " + args[0] + " s without motion");
}

int sensitivity(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto level = args.size() == 1 ? parse_integer(args[0], 1, 10) : std::nullopt;
    if (!level)
        return usage_error(ctx, "sensitivity takes a level from 1 to 10 (5 is the default, 1.0x)");
    SystemMsg msg = make_request(TYPE_SET_MOUSE_SENSITIVITY);
    msg.data.nValue = static_cast<int32_t>(*level);
    return send_plain(ctx, msg, "mouse sensitivity " + args[0]);
}

int version(CtlContext& ctx, const std::vector<std::string>&)
{
    const auto answer = ctx.exchange(make_request(TYPE_GET_VERSION));
    if (!answer || !answer->reply)
        return answer ? ctx.fail(kExitFailed, "tactord sent no version") : kExitFailed;
    const InputVersion& v = answer->reply->data.version;
    const std::string agent = bounded_text(v.orvelVer.data(), v.orvelVer.size());
    ctx.say("tactord " + bounded_text(v.tactordVer.data(), v.tactordVer.size()));
    ctx.say("agent " + (agent.empty() ? std::string("- (the remote computer has not answered)") : agent));
    return kExitOk;
}

int recovery_screen(CtlContext& ctx, const std::vector<std::string>&)
{
    return send_plain(ctx, make_request(TYPE_RECOVERY_SCREEN), "recovery-screen sent (tactord takes it and does nothing)");
}

int touchscreen(CtlContext& ctx, const std::vector<std::string>& args)
{
    const auto index = args.size() == 2 ? parse_screen(args[1]) : std::nullopt;
    if (!index || (args[0] != "on" && args[0] != "off"))
        return usage_error(ctx, "touchscreen takes on|off main|sub");
    SystemMsg msg = make_request(TYPE_SWITCH_TOUCH_SCREEN, *index);
    msg.data.nValue = args[0] == "on" ? 1 : 0;
    return send_plain(ctx, msg,
                      std::string(*index == 0 ? "board" : "USB") + " touchscreen switched " + args[0] +
                          (args[0] == "off" ? " (a double tap on it sends key code 199 to the main screen)" : ""));
}

int do_register(CtlContext& ctx, const std::vector<std::string>& args)
{
    MonitorOptions opts;
    opts.hint = ctx.err;
    opts.hint_name = "tactorctl";
    const auto screen = args.empty() ? std::nullopt : parse_screen(args[0]);
    if (!screen)
        return usage_error(ctx, "register takes SCREEN [--json] [--count N] [--for SECONDS]");
    opts.screen = *screen;
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--json") {
            opts.json = true;
            continue;
        }
        if (args[i] != "--count" && args[i] != "--for")
            return usage_error(ctx, "unexpected argument '" + args[i] + "'");
        const std::string* value = option_value(ctx, args, i);
        if (value == nullptr)
            return kExitUsage;
        if (args[i - 1] == "--count") {
            const auto n = parse_integer(*value, 1, INT32_MAX);
            if (!n)
                return usage_error(ctx, "--count takes a number of records");
            opts.count = *n;
        } else {
            const auto s = parse_seconds(*value, 86400);
            if (!s)
                return usage_error(ctx, "--for takes seconds");
            opts.duration = std::chrono::milliseconds(static_cast<long long>(*s * 1000));
        }
    }
    ControlConnection* c = ctx.connect();
    if (c == nullptr)
        return kExitFailed;
    return run_monitor(*c, opts, ctx.out) == 0 ? kExitOk
                                               : ctx.fail(kExitFailed, "tactord closed the connection");
}

std::vector<Command> command_table()
{
    std::vector<Command> t = {
        {{"register"}, "SCREEN [--json] [--count N] [--for SECONDS]",
         "TYPE_INPUT_INIT: registers this connection as the display client of screen 0 (main) or 1 (sub)\n"
         "and prints every record it receives, as tactord-events does.",
         do_register},
        {{"mode", "get"}, "", "TYPE_MODE_GET: prints the multi-screen mode by name.", mode_get},
        {{"mode", "set"}, "clone|extern|double-player [--ipc-extern] [--grid C0,...,C8] [--screen N]",
         "TYPE_MODE_SET: sets the base mode. --grid is the 3x3 placement grid, row by row, each cell\n"
         "0 (empty), 1 (main), 2 (sub) or 3 (IPC screen); the default 0,0,0,1,2,0,0,0,0 puts the main\n"
         "screen left of the sub screen. --ipc-extern adds the IPC screen to screen N's grid (without it\n"
         "an IPC extended screen is closed). Prints the mode tactord is in afterwards.",
         mode_set},
        {{"led"}, "caps|num|scroll on|off [--screen N]",
         "TYPE_LED_CTRL: sets a LED on the keyboards of screen N (default 0). The connection registers\n"
         "for the screen first, so this works only while no display client holds it.",
         led},
        {{"ipc-window", "get"}, "", "TYPE_GET_IPC_WIN_INFO: prints whether the IPC window is open, where and how big.",
         window_get},
        {{"ipc-window", "open"}, "SCREEN X1 Y1 X2 Y2",
         "TYPE_SET_IPC_WINDOW: opens the IPC window on screen 0 or 1 over the rectangle from (X1,Y1)\n"
         "to (X2,Y2), in that screen's pixels.",
         window_open},
        {{"ipc-window", "close"}, "", "TYPE_SET_IPC_WINDOW: closes the IPC window.", window_close},
        {{"ipc-window", "cutout"}, "add|del SCREEN X1 Y1 X2 Y2 | clear SCREEN",
         "TYPE_IPC_WINDOW: adds or removes a cut-out of the IPC window (an area covered by a local\n"
         "window, where touches stay on the local screen), or removes them all.",
         window_cutout},
        {{"ipc", "connected"}, "", "TYPE_IPC_CONNECTED: prints whether the remote computer's agent is connected.",
         ipc_connected},
        {{"ipc", "address"}, "A.B.C.D", "TYPE_SET_IPC_IP: the agent's address for the next connection.", ipc_address},
        {{"ipc", "command"}, "shutdown|standby|reboot|wakeup|resolution W H",
         "TYPE_SEND_IPC_CMD: sends a power or resolution command to the remote computer (refused while\n"
         "it is not connected).",
         ipc_command},
        {{"ipc", "extended-screen"}, "",
         "TYPE_ORVEL_EXT_SCR_EXIST: prints the extended-screen value the remote computer announced.", ipc_extended},
        {{"inject"}, "TYPE CODE VALUE",
         "TYPE_VNC_INPUT: feeds one event into the pipeline as if an input device had sent it\n"
         "(names or numbers: inject EV_REL REL_X 10, inject EV_KEY KEY_A 1).",
         inject},
        {{"direction"}, "SCREEN VALUE", "TYPE_SET_DIRECTION: a screen direction (accepted and ignored by this board).",
         direction},
        {{"cursor-timeout"}, "SECONDS", "TYPE_SET_CURSOR_TIME: hide the mouse cursor after SECONDS without motion.",
         cursor_timeout},
        {{"version"}, "", "TYPE_GET_VERSION: prints the daemon's version and the remote agent's.", version},
        {{"sensitivity"}, "LEVEL", "TYPE_SET_MOUSE_SENSITIVITY: mouse speed level 1 (0.4x) to 10 (3x), 5 is 1.0x.",
         sensitivity},
        {{"recovery-screen"}, "", "TYPE_RECOVERY_SCREEN: accepted by the daemon, no effect.", recovery_screen},
        {{"touchscreen"}, "on|off main|sub",
         "TYPE_SWITCH_TOUCH_SCREEN: switches the board's touchscreen (main) or a USB touchscreen (sub)\n"
         "on or off. A switched-off touchscreen delivers nothing; a double tap on it sends key code\n"
         "199 to the main screen.",
         touchscreen},
    };
    add_calibration_commands(t);
    add_calibrate_commands(t);
    add_config_commands(t);
    add_device_commands(t);
    return t;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string s;
    for (const std::string& w : words)
        s += (s.empty() ? "" : " ") + w;
    return s;
}

void print_overview(std::FILE* out, const std::vector<Command>& table)
{
    std::fprintf(out,
                 "usage: tactorctl [--socket PATH] [--wait SECONDS] COMMAND [ARGS]\n"
                 "       tactorctl help [COMMAND] | --help | -h | --version\n"
                 "A client of tactord's control socket (default %s; TACTORD_ROOT moves it),\n"
                 "and the integrator's bring-up tools (devices, calibrate, config check).\n"
                 "--wait waits that long for the socket to appear (a daemon that is starting).\n"
                 "Exit status: 0 done, 1 refused by tactord or tactord not reachable, 2 bad arguments.\n"
                 "tactorctl COMMAND --help says more about a command.\n\ncommands:\n",
                 default_socket_path().c_str());
    for (const Command& c : table)
        std::fprintf(out, "  %s %s\n", joined(c.words).c_str(), c.args.c_str());
}

bool is_help(const std::string& word)
{
    return word == "--help" || word == "-h";
}

// The help of every command whose words begin with the given ones ("mode"
// gives mode get and mode set); false when there is none.
bool print_help(std::FILE* out, const std::vector<Command>& table, const std::vector<std::string>& words)
{
    bool any = false;
    for (const Command& c : table) {
        const std::size_t n = std::min(words.size(), c.words.size());
        if (words.empty() || !std::equal(c.words.begin(), c.words.begin() + static_cast<std::ptrdiff_t>(n), words.begin()))
            continue;
        std::fprintf(out, "%susage: tactorctl %s %s\n%s\n", any ? "\n" : "", joined(c.words).c_str(), c.args.c_str(),
                     c.help.c_str());
        any = true;
    }
    return any;
}

}  // namespace

int tactorctl_run(const std::vector<std::string>& all, std::FILE* out, std::FILE* err)
{
    CtlContext ctx;
    ctx.out = out;
    ctx.err = err;
    const std::vector<Command> table = command_table();
    std::size_t i = 0;
    for (; i < all.size() && all[i].rfind("-", 0) == 0; ++i) {
        if (is_help(all[i])) {
            print_overview(out, table);
            return kExitOk;
        }
        if (all[i] == "--version") {
            std::fprintf(out, "tactorctl %s\n", TACTORD_VERSION);
            return kExitOk;
        }
        if (all[i] != "--socket" && all[i] != "--wait")
            return usage_error(ctx, "unknown option '" + all[i] + "'");
        const std::string* value = option_value(ctx, all, i);
        if (value == nullptr)
            return kExitUsage;
        if (all[i - 1] == "--socket") {
            ctx.socket = *value;
        } else {
            const auto s = parse_seconds(*value, 3600);
            if (!s)
                return usage_error(ctx, "--wait takes seconds");
            ctx.wait = std::chrono::milliseconds(static_cast<long long>(*s * 1000));
        }
    }
    const std::vector<std::string> rest(all.begin() + static_cast<std::ptrdiff_t>(i), all.end());
    if (rest.empty()) {
        print_overview(err, table);
        return kExitUsage;
    }
    if (rest[0] == "help") {
        if (rest.size() == 1) {
            print_overview(out, table);
            return kExitOk;
        }
        const std::vector<std::string> words(rest.begin() + 1, rest.end());
        return print_help(out, table, words) ? kExitOk : usage_error(ctx, "no command '" + joined(words) + "'");
    }
    // The command with the longest run of matching words.
    const Command* found = nullptr;
    for (const Command& c : table) {
        if (c.words.size() <= rest.size() && std::equal(c.words.begin(), c.words.end(), rest.begin()) &&
            (found == nullptr || c.words.size() > found->words.size()))
            found = &c;
    }
    const auto help_at = std::find_if(rest.begin(), rest.end(), is_help);
    if (help_at != rest.end()) {
        // The words before --help name a command or a group.
        const std::vector<std::string> words =
            found != nullptr ? found->words : std::vector<std::string>(rest.begin(), help_at);
        if (print_help(out, table, words))
            return kExitOk;
    }
    if (found == nullptr) {
        // A group word alone, or a typo: list what there is.
        std::string near;
        for (const Command& c : table)
            if (c.words[0] == rest[0])
                near += "\n  tactorctl " + joined(c.words) + " " + c.args;
        return usage_error(ctx, "unknown command '" + joined(rest) + "'" + (near.empty() ? "" : "; did you mean:" + near));
    }
    const std::vector<std::string> args(rest.begin() + static_cast<std::ptrdiff_t>(found->words.size()), rest.end());
    return found->run(ctx, args);
}

}  // namespace tools
