#include "sim/commands.h"

#include <linux/input.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <sstream>
#include <thread>

#include "client/args.h"
#include "client/input_names.h"
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
           "plug FILE.events as NAME [on PORT]   a new device described by a recording's header\n"
           "                                     (PORT: its physical path, default a hub on seat 5)\n"
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
           "replay FILE [on DEVICE] [fast]       plays an evemu recording (.events) into a device\n"
           "snapshot FILE.png                    what the emulated /dev/fb0 shows, as a PNG image\n"
           "wait SECONDS | say TEXT              pause | print a note\n"
           "expect SOURCE TEXT                   wait up to 4 s for a line of SOURCE (screen 0, keyboard,\n"
           "                                     scan-client, scan-service, sim, ...) holding TEXT since\n"
           "                                     the last action; fails otherwise\n"
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
    if (cmd == "expect") {
        const bool screen = w.size() > 2 && w[1] == "screen";
        const std::string source = screen ? "screen " + w[2] : (w.size() > 1 ? w[1] : "");
        const std::string what = rest_of(w, screen ? 3 : 2);
        if (what.empty())
            return fail("expect takes a source (screen 0, keyboard, ...) and a text");
        if (!transcript_.wait_for(source, what, mark_, 4s))
            return fail("expected from " + source + ": \"" + what + "\" - it did not come");
        return true;
    }
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

    // Actions: what they cause is shown before the next command runs.
    mark_ = transcript_.mark();
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
    } else {
        return fail("unknown command '" + cmd + "' (help lists them)");
    }
    transcript_.settle(300ms, 3s);
    return true;
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
    // plug FILE as NAME [on PORT]
    if (w.size() != 4 && !(w.size() == 6 && w[4] == "on")) {
        fail("plug FILE.events as NAME [on PORT]");
        return;
    }
    std::ifstream in(w[1], std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    Recording rec;
    std::string error;
    if (!in || !parse_recording(text.str(), rec, error) || !rec.describes_device()) {
        fail(w[1] + ": " + (error.empty() ? "no device description (N: and B: lines) in it" : error));
        return;
    }
    // Behind a hub on the main touchscreen's port: a device of screen 0 that
    // leaves alone.
    const std::string port = w.size() == 6 ? w[5] : "usb-musb-hdrc.0-1.4/input0";
    if (!panel_.add_device(w[3], "\"" + rec.name + "\" from " + w[1], rec.device(port), error) ||
        !panel_.plug(w[3], error))
        fail(error);
}

}  // namespace emul
