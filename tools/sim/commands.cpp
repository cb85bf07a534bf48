#include "sim/commands.h"

#include <linux/input.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "client/args.h"
#include "client/control_client.h"
#include "client/input_names.h"
#include "client/record_text.h"
#include "sim/evemu.h"
#include "sim/keys.h"

namespace emul {
namespace {

using namespace std::chrono_literals;
using tactord::input_event;

const input_event kSyn = ev(EV_SYN, SYN_REPORT, 0);

std::vector<std::string> words_of(const std::string& line)
{
    std::istringstream in(line);
    std::vector<std::string> out;
    for (std::string w; in >> w;) {
        if (w[0] == '#')
            break;  // a comment runs to the end of the line
        out.push_back(w);
    }
    return out;
}

std::string rest_of(const std::vector<std::string>& words, std::size_t from)
{
    std::string s;
    for (std::size_t i = from; i < words.size(); ++i)
        s += (s.empty() ? "" : " ") + words[i];
    return s;
}

// Expectations of whole records leave aside those whose timing is the
// cursor timer's, not an action's, and a display client's own notes.
bool a_record(const std::string& text)
{
    return text != "cursor show" && text != "cursor hide" && text.rfind("tactord-events: ", 0) != 0;
}

// The test devices a script can plug in by kind.
const TestDevice* device_kind(const std::string& kind)
{
    static const std::pair<const char*, const TestDevice& (*)()> kKinds[] = {
        {"single-touch", devices::single_touch_screen}, {"multi-touch", devices::multi_touch_screen},
        {"keyboard", devices::full_keyboard},           {"keypad", devices::partial_keyboard},
        {"mouse", devices::mouse},                      {"mouse-with-abs", devices::mouse_with_abs},
        {"abs-mouse", devices::abs_mouse},              {"tablet", devices::tablet},
        {"touchpad", devices::touchpad},                {"joystick", devices::joystick},
        {"accelerometer", devices::accelerometer},      {"front-panel", devices::front_panel},
        {"wedge-scanner", devices::wedge_scanner},      {"misc-buttons", devices::misc_buttons}};
    for (const auto& [name, dev] : kKinds)
        if (kind == name)
            return &dev();
    return nullptr;
}

bool has_axis(const TestDevice& dev, unsigned code)
{
    for (const unsigned a : dev.abs)
        if (a == code)
            return true;
    return false;
}

}  // namespace

const char* Interpreter::help_text()
{
    return "devices                              the simulated devices and where they are plugged\n"
           "plug NAME | unplug NAME              plug a device in or pull it out\n"
           "plug FILE.events|KIND as NAME [on PORT] [--no-ids] [--failing-ioctls]\n"
           "                                     a new device described by a recording's header, or a test\n"
           "                                     device (KIND: single-touch, multi-touch, keyboard, mouse,\n"
           "                                     mouse-with-abs, tablet, front-panel, ...); PORT: its\n"
           "                                     physical path (default the kind's own, for a recording a\n"
           "                                     hub on seat 5); --no-ids: no name and phys in sysfs;\n"
           "                                     --failing-ioctls: every ioctl on its node fails\n"
           "send DEVICE CODE VALUE[*N]...        events into a device in one write (send mouse REL_X 10\n"
           "                                     SYN_REPORT 0; VALUE*N: N such events)\n"
           "send DEVICE raw HEX                  bytes into a device's node as they are\n"
           "move DX DY                           mouse motion\n"
           "click [left|right|middle]            a mouse click;  wheel N: wheel steps\n"
           "key NAME [press|release|repeat]      a key (KEY_CAPSLOCK, a, ...), pressed and released\n"
           "type TEXT                            types text on the keyboard\n"
           "touch X Y [on DEVICE]                a tap at raw coordinates 0..4095 (default: touchscreen)\n"
           "touch down X Y [on DEVICE] | touch move X Y | touch up\n"
           "touch double X Y [on DEVICE]         a double tap\n"
           "scan TEXT | scan --cdc TEXT          a barcode from the keyboard-wedge scanner (typed, then\n"
           "                                     Enter) or from the CDC scanner on /dev/ttyACM0 (then CR)\n"
           "scanner-client [--screen 0|1] [--off] [NAME]\n"
           "                                     a scanner client in the sim: declares the devices named\n"
           "                                     NAME... (default Barcode Scanner) scanners (--off: input\n"
           "                                     devices again), routes scans to the focused screen or to\n"
           "                                     screen N, and shows the inventories and scans it receives\n"
           "mode [clone|extern|double-player] [tactorctl mode set options]   show or switch the mode\n"
           "ctl ARGS...                          any tactorctl command (ctl --help lists them)\n"
           "ctl-msg TYPE SCREEN [WORD...]        a control request of its own: TYPE by number or name, the\n"
           "                                     data's 32-bit words as given, the rest zero; shows the reply\n"
           "flood SIGNAL on|off                  sends tactord SIGNAL (SIGWINCH) every 0.1 ms while on\n"
           "driver-lock SCREEN on|off            the lock status the touch driver reports for screen 0..2\n"
           "file PATH TEXT                       writes TEXT into PATH below the sandbox (/proc/atmel_product)\n"
           "replay FILE [on DEVICE] [fast]       plays an evemu recording (.events) into a device\n"
           "snapshot FILE.png                    what the emulated /dev/fb0 shows, as a PNG image\n"
           "wait SECONDS | say TEXT              pause | print a note\n"
           "expect SOURCE TEXT                   wait up to 10 s for a line of SOURCE (screen 0, keyboard,\n"
           "                                     scan-client, scan-service, sim, ...) holding TEXT since\n"
           "                                     the last action; fails otherwise. SOURCE log: the daemon's log\n"
           "expect-records SOURCE TEXT | TEXT... the lines of SOURCE since the last action are exactly these,\n"
           "                                     in order (cursor show and hide and a client's notes aside);\n"
           "                                     TEXT *N stands for N such lines\n"
           "expect-none SOURCE MS [TEXT]         no line of SOURCE (holding TEXT) comes within MS since the\n"
           "                                     last action (as for expect-records)\n"
           "demo                                 the demonstration again\n"
           "help | quit\n";
}

const char* Interpreter::demo_script()
{
    return R"(say Clone mode: both screens show the main screen; the mouse stays inside it.
mode clone
move 2000 0
expect screen 0 EV_ABS ABS_X 1279
say Extended mode: the sub screen stands right of the main one, and the pointer crosses over.
mode extern --grid 0,0,0,1,2,0,0,0,0
move 400 0
expect screen 0 cursor lost
expect screen 1 cursor gained
say A click gives the keyboard focus to the screen under the pointer.
click
expect screen 0 focus lost
expect screen 1 focus gained
say Caps Lock: the focused screen learns the lock state, and the keyboard's LED lights.
key KEY_CAPSLOCK
expect screen 1 lock Caps on
expect keyboard EV_LED LED_CAPSL on
key KEY_CAPSLOCK
expect screen 1 lock Caps off
say A touch on the USB touchscreen: the cursor comes back to the main screen, which gets a button press.
touch 2048 1024
expect screen 1 cursor lost
expect screen 0 EV_KEY BTN_LEFT press
say The board's panel switched off ignores touches; a double tap on it wakes the main screen (key 199).
ctl touchscreen off main
touch 1500 1500 on panel
say One tap: nothing arrives. Now two in quick succession:
wait 1
touch double 1500 1500 on panel
expect screen 0 EV_KEY code 0xc7 press
ctl touchscreen on main
say That was the demonstration; "help" lists the commands.
)";
}

bool Interpreter::fail(const std::string& text)
{
    ++failures_;
    transcript_.line("sim", "!!", text);
    return true;
}

bool Interpreter::press(const std::string& device, uint16_t type, uint16_t code, int32_t value)
{
    std::string error;
    if (panel_.play(device, {ev(type, code, value), kSyn}, error))
        return true;
    fail(error);
    return false;
}

bool Interpreter::run(const std::string& line)
{
    const std::vector<std::string> w = words_of(line);
    if (w.empty())
        return true;
    const std::string& cmd = w[0];
    std::string error;
    if (cmd == "quit" || cmd == "exit")
        return false;
    if (cmd == "help") {
        std::istringstream lines(help_text());
        for (std::string l; std::getline(lines, l);)
            transcript_.line("sim", "--", l);
        return true;
    }
    if (cmd == "say") {
        transcript_.line("sim", "--", rest_of(w, 1));
        return true;
    }
    if (cmd == "wait") {
        const auto s = w.size() == 2 ? tools::parse_seconds(w[1], 600) : std::nullopt;
        if (!s)
            return fail("wait takes seconds");
        std::this_thread::sleep_for(std::chrono::milliseconds(static_cast<long long>(*s * 1000)));
        return true;
    }
    if (cmd == "expect" || cmd == "expect-none" || cmd == "expect-records")
        return expectation(cmd, w);
    if (cmd == "demo") {
        std::istringstream lines(demo_script());
        for (std::string l; std::getline(lines, l);)
            run(l);
        return true;
    }
    if (cmd == "devices") {
        for (const Panel::Device& d : panel_.devices())
            transcript_.line(d.name, "--",
                             (d.node >= 0 ? "/dev/event" + std::to_string(d.node) : std::string("unplugged")) + ", " +
                                 d.dev.phys + ": " + d.what);
        transcript_.line("cdc-scanner", "--",
                         std::string(Panel::kCdcNode) + ": USB CDC barcode scanner (scan --cdc TEXT)");
        return true;
    }

    if (cmd == "flood") {
        // Not an action: what it causes goes on during the actions that follow.
        int signal = 0;
        for (int n = 1; n < 32 && w.size() == 3 && signal == 0; ++n)
            if (const char* name = sigabbrev_np(n); name != nullptr && w[1] == "SIG" + std::string(name))
                signal = n;
        if (signal == 0 || (w[2] != "on" && w[2] != "off"))
            return fail("flood takes a signal name (SIGWINCH) and on or off");
        if (!panel_.flood(signal, w[2] == "on", error))
            fail(error);
        return true;
    }

    // Actions: what they cause is shown before the next command runs.
    mark_ = transcript_.mark();
    log_mark_ = panel_.log_mark();
    if (!panel_.daemon_alive())
        return fail("tactord is not running any more (see " + panel_.root() + "/tactord.log)");
    if (cmd == "plug" && w.size() >= 3 && w[2] == "as") {
        plug_recording(w);
    } else if (cmd == "plug" || cmd == "unplug") {
        if (w.size() != 2)
            return fail(cmd + " takes a device name (see devices)");
        if (!(cmd == "plug" ? panel_.plug(w[1], error) : panel_.unplug(w[1], error)))
            fail(error);
    } else if (cmd == "move") {
        const auto dx = w.size() == 3 ? tools::parse_integer(w[1], -100000, 100000) : std::nullopt;
        const auto dy = w.size() == 3 ? tools::parse_integer(w[2], -100000, 100000) : std::nullopt;
        if (!dx || !dy)
            return fail("move takes DX DY");
        std::vector<input_event> frame;
        if (*dx != 0)
            frame.push_back(ev(EV_REL, REL_X, static_cast<int32_t>(*dx)));
        if (*dy != 0)
            frame.push_back(ev(EV_REL, REL_Y, static_cast<int32_t>(*dy)));
        frame.push_back(kSyn);
        if (!panel_.play("mouse", frame, error))
            fail(error);
    } else if (cmd == "click") {
        const std::string button = w.size() > 1 ? w[1] : "left";
        const uint16_t code = button == "right" ? BTN_RIGHT : button == "middle" ? BTN_MIDDLE : BTN_LEFT;
        if (button != "left" && button != "right" && button != "middle")
            return fail("click takes left, right or middle");
        if (press("mouse", EV_KEY, code, 1))
            press("mouse", EV_KEY, code, 0);
    } else if (cmd == "wheel") {
        const auto n = w.size() == 2 ? tools::parse_integer(w[1], -100, 100) : std::nullopt;
        if (!n)
            return fail("wheel takes a number of steps");
        press("mouse", EV_REL, REL_WHEEL, static_cast<int32_t>(*n));
    } else if (cmd == "key") {
        std::string name = w.size() > 1 ? w[1] : "";
        if (name.size() == 1)
            name = "KEY_" + std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(name[0]))));
        const auto code = tools::parse_code_name(name);
        const std::string how = w.size() > 2 ? w[2] : "";
        if (!code || code->first != EV_KEY || w.size() > 3 ||
            (!how.empty() && how != "press" && how != "release" && how != "repeat"))
            return fail("key takes a key name (KEY_A, a, KEY_CAPSLOCK) and press, release or repeat");
        const int32_t value = how == "release" ? 0 : how == "repeat" ? 2 : 1;
        if (press("keyboard", EV_KEY, code->second, value) && how.empty())
            press("keyboard", EV_KEY, code->second, 0);
    } else if (cmd == "type") {
        for (const char c : rest_of(w, 1)) {
            const auto stroke = stroke_for(c);
            if (!stroke) {
                fail(std::string("type: no key for '") + c + "'");
                continue;
            }
            const bool ok = (!stroke->shift || press("keyboard", EV_KEY, KEY_LEFTSHIFT, 1)) &&
                            press("keyboard", EV_KEY, stroke->code, 1) && press("keyboard", EV_KEY, stroke->code, 0) &&
                            (!stroke->shift || press("keyboard", EV_KEY, KEY_LEFTSHIFT, 0));
            if (!ok)
                break;
        }
    } else if (cmd == "scan") {
        scan(w);
    } else if (cmd == "scanner-client") {
        scanner_client(w);
    } else if (cmd == "snapshot") {
        if (w.size() != 2)
            return fail("snapshot takes a file name (FILE.png)");
        if (!panel_.snapshot(w[1], error))
            return fail(error);
        transcript_.line("sim", "--", "the screen (/dev/fb0) written to " + w[1]);
    } else if (cmd == "touch") {
        touch(w);
    } else if (cmd == "mode") {
        std::vector<std::string> args = {"mode", w.size() > 1 ? "set" : "get"};
        args.insert(args.end(), w.begin() + 1, w.end());
        if (panel_.ctl(args) != 0)
            ++failures_;
    } else if (cmd == "ctl") {
        if (panel_.ctl(std::vector<std::string>(w.begin() + 1, w.end())) != 0)
            ++failures_;
    } else if (cmd == "replay") {
        replay(w);
    } else if (cmd == "send") {
        send(w);
    } else if (cmd == "ctl-msg") {
        control_message(w);
    } else if (cmd == "file") {
        write_file(w);
    } else if (cmd == "driver-lock") {
        const auto screen = w.size() == 3 ? tools::parse_integer(w[1], 0, 2) : std::nullopt;
        if (!screen || (w[2] != "on" && w[2] != "off") || !panel_.set_driver_lock(static_cast<int>(*screen), w[2] == "on"))
            return fail("driver-lock takes a screen 0..2 and on or off");
    } else {
        return fail("unknown command '" + cmd + "' (help lists them)");
    }
    // What an action causes comes within milliseconds; a pause of 150 ms
    // ends it (and a scenario's steps cost no more than that each).
    transcript_.settle(150ms, 3s);
    return true;
}

bool Interpreter::expectation(const std::string& cmd, const std::vector<std::string>& w)
{
    const bool screen = w.size() > 2 && w[1] == "screen";
    const std::string source = screen ? "screen " + w[2] : (w.size() > 1 ? w[1] : "");
    std::size_t at = screen ? 3 : 2;
    const bool log = source == "log";
    // What is expected must come; the bound only ends a script that waits
    // in vain, and is generous for a machine busy with other work.
    constexpr auto kBound = 10s;
    if (cmd == "expect") {
        const std::string what = rest_of(w, at);
        if (what.empty())
            return fail("expect takes a source (screen 0, keyboard, log, ...) and a text");
        if (!(log ? panel_.log_wait(what, log_mark_, kBound) : transcript_.wait_for(source, what, mark_, kBound)))
            return fail("expected from " + source + ": \"" + what + "\" - it did not come");
        return true;
    }
    if (cmd == "expect-none") {
        // A plain count, not the optional: GCC 12 at -O2 warns falsely that its value may be unset.
        long long ms = 0;
        if (const auto n = at < w.size() ? tools::parse_integer(w[at], 1, 60000) : std::nullopt)
            ms = *n;
        const std::string what = rest_of(w, at + 1);
        if (source.empty() || ms == 0 || (log && what.empty()))
            return fail("expect-none takes a source, milliseconds and (for log: not optional) a text");
        const std::chrono::milliseconds quiet(ms);
        if (log) {
            std::this_thread::sleep_for(quiet);
            if (panel_.log_since(log_mark_).find(what) != std::string::npos)
                return fail("unexpected in the log: \"" + what + "\"");
            return true;
        }
        const auto keep = [&what](const std::string& text) {
            return a_record(text) && text.find(what) != std::string::npos;
        };
        const auto came = transcript_.lines_of(source, mark_, keep, 1, quiet);
        return came.empty() || fail("unexpected from " + source + ": \"" + came[0] + "\"");
    }
    // expect-records: the words between bars are the lines; a last word *N
    // stands for N such lines.
    std::vector<std::string> wanted;
    for (std::size_t from = at; from < w.size(); from = at + 1) {
        at = std::find(w.begin() + static_cast<std::ptrdiff_t>(from), w.end(), "|") - w.begin();
        std::size_t end = at;
        std::optional<long long> times = 1;
        if (end > from + 1 && w[end - 1][0] == '*')
            times = tools::parse_integer(w[--end].substr(1), 1, 1000);
        const std::string line = rest_of(std::vector<std::string>(w.begin() + static_cast<std::ptrdiff_t>(from),
                                                                  w.begin() + static_cast<std::ptrdiff_t>(end)), 0);
        if (line.empty() || !times)
            return fail("expect-records: an empty line or a bad *N in \"" + rest_of(w, screen ? 3 : 2) + "\"");
        wanted.insert(wanted.end(), static_cast<std::size_t>(*times), line);
    }
    if (source.empty() || log || wanted.empty())
        return fail("expect-records takes a source other than log and lines separated by |");
    transcript_.lines_of(source, mark_, a_record, wanted.size(), kBound);
    // Lines that come after the last expected one would be caught too: the
    // action settled already, so quiet since the last line is enough.
    transcript_.settle(300ms, 3s, false);
    const auto got = transcript_.lines_of(source, mark_, a_record, 0, 0ms);
    if (got == wanted)
        return true;
    std::string text;
    for (const std::string& l : got)
        text += (text.empty() ? "" : " | ") + l;
    return fail("records of " + source + ": \"" + text + "\", expected \"" + rest_of(w, screen ? 3 : 2) + "\"");
}

void Interpreter::send(const std::vector<std::string>& w)
{
    // send DEVICE CODE VALUE[*N]... | send DEVICE raw HEX
    std::string error;
    if (w.size() == 4 && w[2] == "raw") {
        std::string bytes;
        for (std::size_t i = 0; i < w[3].size(); i += 2) {
            const auto b = i + 1 < w[3].size() ? tools::parse_integer("0x" + w[3].substr(i, 2), 0, 255) : std::nullopt;
            if (!b) {
                fail("send DEVICE raw takes bytes in hex (0a1b2c)");
                return;
            }
            bytes += static_cast<char>(*b);
        }
        if (!panel_.play_raw(w[1], bytes, error))
            fail(error);
        return;
    }
    if (w.size() < 4 || w.size() % 2 != 0) {
        fail("send takes a device and CODE VALUE pairs, or raw HEX");
        return;
    }
    std::vector<input_event> events;
    for (std::size_t i = 2; i + 1 < w.size(); i += 2) {
        const auto code = tools::parse_code_name(w[i]);
        const std::size_t star = w[i + 1].find('*');
        const auto value = tools::parse_integer(w[i + 1].substr(0, star), INT32_MIN, INT32_MAX);
        const auto times = star == std::string::npos ? 1 : tools::parse_integer(w[i + 1].substr(star + 1), 1, 10000);
        if (!code || !value || !times) {
            fail("send: '" + w[i] + " " + w[i + 1] + "' is not CODE VALUE[*N] (REL_X 10, ABS_X 0*21)");
            return;
        }
        events.insert(events.end(), static_cast<std::size_t>(*times),
                      ev(code->first, code->second, static_cast<int32_t>(*value)));
    }
    // A long burst is shown as written.
    const bool burst = rest_of(w, 2).find('*') != std::string::npos;
    if (!panel_.play(w[1], events, error, burst ? rest_of(w, 2) : std::string()))
        fail(error);
}

void Interpreter::control_message(const std::vector<std::string>& w)
{
    // ctl-msg TYPE SCREEN [WORD...]
    std::optional<long long> type = w.size() > 1 ? tools::parse_integer(w[1], INT32_MIN, INT32_MAX) : std::nullopt;
    for (int t = 0; !type && w.size() > 1 && tools::msg_type_name(t) != nullptr; ++t)
        if (w[1] == tools::msg_type_name(t))
            type = t;
    const auto screen = w.size() > 2 ? tools::parse_integer(w[2], INT32_MIN, INT32_MAX) : std::nullopt;
    constexpr std::size_t kWords = sizeof(SystemMsg::data) / sizeof(int32_t);
    if (!type || !screen || w.size() > 3 + kWords) {
        fail("ctl-msg takes TYPE SCREEN and at most " + std::to_string(kWords) + " data words");
        return;
    }
    SystemMsg msg = tools::make_request(static_cast<int32_t>(*type), static_cast<int32_t>(*screen));
    for (std::size_t i = 3; i < w.size(); ++i) {
        const auto word = tools::parse_integer(w[i], INT32_MIN, UINT32_MAX);
        if (!word) {
            fail("ctl-msg: '" + w[i] + "' is not a 32-bit word");
            return;
        }
        const auto bits = static_cast<uint32_t>(*word);
        std::memcpy(reinterpret_cast<char*>(&msg.data) + (i - 3) * sizeof bits, &bits, sizeof bits);
    }
    std::string error;
    auto conn = tools::ControlConnection::open(tools::default_socket_path(), 3s, error);
    const auto answer = conn ? conn->exchange(msg) : tools::ControlConnection::Answer{};
    if (!answer.ok) {
        fail("ctl-msg: " + (conn ? std::string("tactord did not handle the request") : error));
        return;
    }
    transcript_.line("ctl-msg", "<<", answer.reply ? tools::describe_reply(*answer.reply) : "no reply");
}

void Interpreter::write_file(const std::vector<std::string>& w)
{
    // file PATH TEXT
    if (w.size() < 3 || w[1].front() != '/' || w[1].find("..") != std::string::npos) {
        fail("file takes an absolute PATH (below the sandbox, no ..) and a text");
        return;
    }
    std::ofstream out(panel_.root() + w[1], std::ios::trunc);
    out << rest_of(w, 2);
    if (!out.flush())
        fail("cannot write " + panel_.root() + w[1]);
}

void Interpreter::touch(const std::vector<std::string>& w)
{
    // touch [down|move|up|double] [X Y] [on DEVICE]
    std::size_t at = 1;
    std::string phase = "tap";
    if (w.size() > 1 && (w[1] == "down" || w[1] == "move" || w[1] == "up" || w[1] == "double"))
        phase = w[at++];
    // A double tap is two taps played back to back, well inside the 0.8 s
    // the daemon allows between their touch-ups, however slow the machine
    // is between commands.
    const int taps = phase == "double" ? 2 : 1;
    if (phase == "double")
        phase = "tap";
    std::optional<long long> x;
    std::optional<long long> y;
    if (phase != "up") {
        x = at + 1 < w.size() ? tools::parse_integer(w[at], 0, 65535) : std::nullopt;
        y = at + 1 < w.size() ? tools::parse_integer(w[at + 1], 0, 65535) : std::nullopt;
        if (!x || !y) {
            fail("touch takes X Y (raw, 0..4095), or down X Y, move X Y, up");
            return;
        }
        at += 2;
    }
    std::string device = phase == "tap" || phase == "down" || touch_device_.empty() ? "touchscreen" : touch_device_;
    if (at + 1 < w.size() && w[at] == "on")
        device = w[at + 1];
    const auto dev = panel_.find(device);
    if (!dev) {
        fail("no device called " + device);
        return;
    }
    const bool multi = has_axis(dev->dev, ABS_MT_SLOT);
    const auto X = static_cast<int32_t>(x.value_or(0));
    const auto Y = static_cast<int32_t>(y.value_or(0));
    using Frame = std::vector<input_event>;
    const input_event mt_x = ev(EV_ABS, ABS_MT_POSITION_X, X), mt_y = ev(EV_ABS, ABS_MT_POSITION_Y, Y);
    const input_event abs_x = ev(EV_ABS, ABS_X, X), abs_y = ev(EV_ABS, ABS_Y, Y);
    const input_event touch_down = ev(EV_KEY, BTN_TOUCH, 1), touch_up = ev(EV_KEY, BTN_TOUCH, 0);
    // A new contact each time: the tracking id counts up.
    const auto down = [&] {
        return multi ? Frame{ev(EV_ABS, ABS_MT_SLOT, 0), ev(EV_ABS, ABS_MT_TRACKING_ID, ++tracking_id_), mt_x, mt_y,
                             touch_down, abs_x, abs_y, kSyn}
                     : Frame{touch_down, abs_x, abs_y, kSyn};
    };
    const Frame move = multi ? Frame{mt_x, mt_y, abs_x, abs_y, kSyn} : Frame{abs_x, abs_y, kSyn};
    const Frame up = multi ? Frame{ev(EV_ABS, ABS_MT_TRACKING_ID, -1), touch_up, kSyn} : Frame{touch_up, kSyn};
    std::string error;
    bool ok = true;
    for (int tap = 0; ok && tap < taps; ++tap) {
        if (tap > 0)
            std::this_thread::sleep_for(150ms);
        if (phase == "tap" || phase == "down")
            ok = panel_.play(device, down(), error);
        if (ok && phase == "tap")
            std::this_thread::sleep_for(60ms);
        if (ok && phase == "move")
            ok = panel_.play(device, move, error);
        if (ok && (phase == "tap" || phase == "up"))
            ok = panel_.play(device, up, error);
    }
    touch_device_ = phase == "down" || phase == "move" ? device : "";
    if (!ok)
        fail(error);
}

void Interpreter::replay(const std::vector<std::string>& w)
{
    // replay FILE [on DEVICE] [fast]
    if (w.size() < 2) {
        fail("replay takes a recording (.events) and optionally on DEVICE and fast");
        return;
    }
    std::string device;
    bool fast = false;
    for (std::size_t i = 2; i < w.size(); ++i) {
        if (w[i] == "on" && i + 1 < w.size())
            device = w[++i];
        else if (w[i] == "fast")
            fast = true;
        else {
            fail("replay: unexpected '" + w[i] + "'");
            return;
        }
    }
    std::ifstream in(w[1], std::ios::binary);
    if (!in) {
        fail("cannot read " + w[1]);
        return;
    }
    std::ostringstream text;
    text << in.rdbuf();
    Recording rec;
    std::string error;
    if (!parse_recording(text.str(), rec, error)) {
        fail(w[1] + ": " + error);
        return;
    }
    if (device.empty()) {
        // The device that can send what was recorded: the first whose
        // capabilities cover every code of the recording.
        for (const Panel::Device& d : panel_.devices()) {
            bool covers = d.node >= 0;
            for (std::size_t i = 0; covers && i < rec.events.size(); ++i) {
                const RecordedEvent& e = rec.events[i];
                const std::vector<unsigned>* set = e.type == EV_KEY ? &d.dev.key
                                                   : e.type == EV_ABS ? &d.dev.abs
                                                   : e.type == EV_REL ? &d.dev.rel
                                                                      : nullptr;
                covers = set == nullptr || std::find(set->begin(), set->end(), e.code) != set->end();
            }
            if (covers) {
                device = d.name;
                break;
            }
        }
        if (device.empty()) {
            fail(w[1] + ": no plugged device has every code of the recording (replay FILE on DEVICE chooses one)");
            return;
        }
    }
    transcript_.line("sim", "--",
                     "replaying " + std::to_string(rec.events.size()) + " events of " + w[1] + " into " + device);
    const auto frames = recording_frames(rec.events);
    uint64_t previous = 0;
    for (std::size_t f = 0; f < frames.size(); ++f) {
        const RecordedEvent& first = frames[f].front();
        const uint64_t at = static_cast<uint64_t>(first.sec) * 1000000u + first.usec;
        if (!fast && f > 0 && at > previous)
            std::this_thread::sleep_for(std::chrono::microseconds(std::min<uint64_t>(at - previous, 2000000)));
        previous = at;
        std::vector<input_event> events;
        for (const RecordedEvent& e : frames[f])
            events.push_back(ev(e.type, e.code, e.value));
        if (!panel_.play(device, events, error)) {
            fail(error);
            return;
        }
        if (fast)
            std::this_thread::sleep_for(5ms);
    }
}

void Interpreter::scan(const std::vector<std::string>& w)
{
    // scan [--cdc] TEXT
    const bool cdc = w.size() > 1 && w[1] == "--cdc";
    const std::string text = rest_of(w, cdc ? 2 : 1);
    if (text.empty()) {
        fail("scan takes the barcode's text (scan --cdc TEXT: from the CDC scanner)");
        return;
    }
    std::string error;
    if (cdc) {
        bool lost = false;
        if (!panel_.cdc_scan(text + "\r", lost, error))
            fail(error);
        else if (lost)
            transcript_.line("sim", "--",
                             "no reader holds /dev/ttyACM0 open (the daemon reads it once a scanner client has "
                             "connected): the scan is lost");
        return;
    }
    char bad = 0;
    const auto frames = typing_frames(text + "\n", bad);
    if (!frames) {
        fail(std::string("scan: the scanner has no key for '") + bad + "'");
        return;
    }
    if (!panel_.play("scanner", *frames, error, "types \"" + text + "\" and Enter"))
        fail(error);
}

void Interpreter::scanner_client(const std::vector<std::string>& w)
{
    // scanner-client [--screen 0|1] [--off] [NAME]
    int screen = -1;
    bool on = true;
    std::size_t at = 1;
    for (; at < w.size() && w[at].rfind("--", 0) == 0; ++at) {
        if (w[at] == "--off") {
            on = false;
        } else if (w[at] == "--screen" && at + 1 < w.size() && (w[at + 1] == "0" || w[at + 1] == "1")) {
            screen = w[++at][0] - '0';
        } else {
            fail("scanner-client takes [--screen 0|1] [--off] [NAME]");
            return;
        }
    }
    const std::string name = at < w.size() ? rest_of(w, at) : "Barcode Scanner";
    if (!scanner_client_.configure(name, on, screen)) {
        fail("the scanner client library could not connect or send");
        return;
    }
    transcript_.line("scan-client", "--",
                     "\"" + name + "\" declared " + (on ? "a scanner" : "an ordinary input device") + ", scans routed to " +
                         (screen < 0 ? std::string("the focused screen") : "screen " + std::to_string(screen)));
}

void Interpreter::plug_recording(const std::vector<std::string>& w)
{
    // plug FILE.events|KIND as NAME [on PORT] [--no-ids] [--failing-ioctls]
    const char* const usage = "plug FILE.events|KIND as NAME [on PORT] [--no-ids] [--failing-ioctls]";
    if (w.size() < 4) {
        fail(usage);
        return;
    }
    NodeOptions options;
    std::string port;
    for (std::size_t i = 4; i < w.size(); ++i) {
        if (w[i] == "on" && i + 1 < w.size()) {
            port = w[++i];
        } else if (w[i] == "--no-ids") {
            options.with_name = options.with_phys = false;
        } else if (w[i] == "--failing-ioctls") {
            options.fail_ioctls = true;
        } else {
            fail(usage);
            return;
        }
    }
    std::string error;
    if (const TestDevice* kind = device_kind(w[1])) {
        if (!panel_.add_device(w[3], "a test " + w[1] + " device", port.empty() ? *kind : kind->on(port), error,
                               options) ||
            !panel_.plug(w[3], error))
            fail(error);
        return;
    }
    std::ifstream in(w[1], std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    Recording rec;
    if (!in || !parse_recording(text.str(), rec, error) || !rec.describes_device()) {
        fail(w[1] + ": " + (error.empty() ? "no device description (N: and B: lines) in it" : error));
        return;
    }
    // Behind a hub on the main touchscreen's port: a device of screen 0 that
    // leaves alone.
    if (!panel_.add_device(w[3], "\"" + rec.name + "\" from " + w[1],
                           rec.device(port.empty() ? "usb-musb-hdrc.0-1.4/input0" : port), error, options) ||
        !panel_.plug(w[3], error))
        fail(error);
}

}  // namespace emul
