// tactorctl and tactord-events against the real daemon and the emulated board: each subcommand's
// output and exit status, its refusals, the device list, LEDs and guided calibration.
#include "sim/dev_mod_cfg_emul.h"
#include "sim/fb_emul.h"
#include "support/screen_clients.h"
#include "support/system_common.h"

namespace {

using testing::HasSubstr;
using testsupport::read_file;
using Args = std::vector<std::string>;

// A run's exit status and what it says: on standard output when it succeeds, else on standard error.
struct Case {
    Args args;
    int status;
    std::string says;
    const char* binary = TACTORCTL_BINARY;
};
pid_t start(const std::string& output, const Args& args, const char* binary = TACTORCTL_BINARY)
{
    Args argv{binary};
    argv.insert(argv.end(), args.begin(), args.end());
    return testsupport::start_program(argv, output);
}
void expect_says(const std::string& output, const Case& c)
{
    const testsupport::ProgramRun r = testsupport::finish_program(start(output, c.args, c.binary), output);
    EXPECT_EQ(r.status, c.status) << testing::PrintToString(c.args) << "\n" << r.out << r.err;
    EXPECT_THAT(c.status == 0 ? r.out : r.err, HasSubstr(c.says)) << testing::PrintToString(c.args);
}

// The panel on node 0 (calibration seat 0), the USB touchscreen (seat 5), the keyboard on node 2.
class Tools : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(bed_.add(i, emul::board()[i].dev));
        std::filesystem::create_directories(root_.at("/proc/bus/input"));  // the kernel's list, for tactorctl devices
        testsupport::write_file(root_.at("/proc/bus/input/devices"),
                                testsupport::listed_device(0x046d, 0xc31c, "Test Keyboard", "usb-musb-hdrc.1-1.1/input0", "kbd event2"));
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"));
        ASSERT_TRUE(daemon_->wait_for("/dev/event2 is keyboard...\n") && daemon_->wait_for("nice is "));
    }
    testsupport::ProgramRun ctl(const Args& args) { return testsupport::finish_program(start(tool_, args), tool_); }
    uint32_t pixel(int x, int y)
    {
        uint32_t v = 0;
        std::ifstream file(fb_.pixels_path(), std::ios::binary);
        file.seekg((y * static_cast<int>(emul::kBoardWidth) + x) * 4);
        file.read(reinterpret_cast<char*>(&v), sizeof v);
        return v;
    }
    void touch(int raw_x, int raw_y)
    {
        using emul::ev;
        bed_.play(0, {ev(EV_ABS, ABS_X, raw_x), ev(EV_ABS, ABS_Y, raw_y), ev(EV_KEY, BTN_TOUCH, 1), ev(EV_SYN, SYN_REPORT, 0)});
        bed_.play(0, {ev(EV_KEY, BTN_TOUCH, 0), ev(EV_SYN, SYN_REPORT, 0)});
    }
    // Guided calibration of the panel: each target drawn when announced (centre and arm ends lit, nothing beyond),
    // cleared at the end; the touch played for it is raw = (100 + 3x, 200 + 4y), 600 further right for target missed.
    testsupport::ProgramRun calibrate(int missed = 0)
    {
        const pid_t pid = start(tool_, {"calibrate", "0", "--fb", "/dev/fb0", "--conf", conf_, "--save", saved_, "--timeout", "10"});
        std::vector<std::pair<int, int>> targets;
        for (int i = 1; i <= 5; ++i) {
            const std::string said = "target " + std::to_string(i) + " of 5 at ";
            EXPECT_TRUE(testsupport::wait_for_file_text(tool_ + ".out", said));
            const std::string out = read_file(tool_ + ".out");
            int x = -1, y = -1;
            std::sscanf(out.c_str() + out.find(said) + said.size(), "%d,%d", &x, &y);
            EXPECT_EQ(std::vector<uint32_t>({pixel(x, y), pixel(x - 20, y), pixel(x, y + 20), pixel(x + 21, y)}),
                      std::vector<uint32_t>({0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0u}))
                << said << x << "," << y;
            targets.push_back({x, y});
            touch(100 + 3 * x + (i == missed ? 600 : 0), 200 + 4 * y);
        }
        const testsupport::ProgramRun r = testsupport::finish_program(pid, tool_);
        EXPECT_THAT(r.out, HasSubstr("calibration mode ended"));
        for (const auto& [x, y] : targets)
            EXPECT_EQ(pixel(x, y), 0u) << "target left on the screen at " << x << "," << y;
        return r;
    }

    testsupport::ScratchRoot root_;
    const std::string tool_ = root_.at("/tool");  // its output: tool.out and tool.err
    const std::string conf_ = testsupport::write_port_conf(root_.at("/work"));
    const std::string saved_ = root_.at("/cali.conf");
    emul::EvdevTestbed bed_;
    emul::FramebufferEmulator fb_{bed_.testbed(), emul::kBoardWidth, emul::kBoardHeight};
    emul::DevModCfgEmulator dev_mod_cfg_{bed_.testbed()};  // asked at every touch
    std::unique_ptr<emul::DaemonProcess> daemon_;
};

// First a client of the sub screen (tactord-events) that sees the extended mode come in: it loses the
// cursor, which is hidden.
TEST_F(Tools, EverySubcommandPrintsWhatTheDaemonDidOrWhyNot)
{
    const std::string events = root_.at("/events");
    const pid_t pid = start(events, {"--screen", "1", "--json", "--count", "3"}, TACTORD_EVENTS_BINARY);
    ASSERT_TRUE(testsupport::wait_for_file_text(events + ".out", "\"record\":\"reply\""));
    ASSERT_EQ(ctl({"mode", "set", "extern"}).status, 0);
    const testsupport::ProgramRun r = testsupport::finish_program(pid, events);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "{\"record\":\"reply\",\"type\":2,\"scr_index\":2053338226,\"type_name\":\"TYPE_MODE_GET\",\"mode\":1,"
              "\"mode_name\":\"clone\",\"text\":\"clone\"}\n"
              "{\"record\":\"cursor\",\"sec\":0,\"usec\":0,\"type\":27,\"code\":1,\"value\":0,\"text\":\"cursor lost\"}\n"
              "{\"record\":\"cursor-show\",\"sec\":0,\"usec\":0,\"type\":33,\"code\":0,\"value\":0,\"text\":\"cursor "
              "hide\"}\n");
    bed_.written(2, 3s);  // the LED the registry clears at plug-in
    const Case cases[] = {
        {{"version"}, 0, "tactord 17.0221.1137\nagent -"},
        {{"mode", "set", "extern", "--grid", "0,0,0,1,2,0,0,0,0"}, 0, "extern\n"},
        {{"register", "1", "--count", "1"}, 0, "reply TYPE_MODE_GET: extern\n"},
        {{"mode", "set", "sideways"}, 2, "unknown mode 'sideways'"},
        {{"mode", "set", "clone", "--grid", "1,2"}, 2, "--grid takes nine cells"},
        {{"ipc-window", "open", "0", "100", "100", "900", "700"}, 0, "IPC window open on screen 0 (100,100)-(900,700)"},
        {{"mode", "get"}, 0, "extern ipc-window\n"},
        {{"ipc-window", "cutout", "add", "0", "10", "10", "20", "20"}, 0, "cut-out add done on screen 0"},
        {{"ipc-window", "cutout", "clear", "1"}, 1, "refused: screen 1 has no IPC window"},
        {{"ipc-window", "close"}, 0, "IPC window closed"},
        {{"ipc-window", "close"}, 1, "refused: no IPC window is open"},
        {{"ipc-window", "open", "0", "900", "100", "100", "700"}, 2, "needs X1 < X2"},
        {{"ipc", "connected"}, 0, "not connected"},
        {{"ipc", "extended-screen"}, 0, "extended screen 0"},
        {{"ipc", "command", "reboot"}, 1, "refused: the remote computer is not connected"},
        {{"ipc", "address", "173.0.0.9"}, 0, "agent address 173.0.0.9"},
        {{"ipc", "address", "999.0.0.1"}, 2, "dotted IPv4"},
        {{"cursor-timeout", "10"}, 0, "after 10 s"},
        {{"cursor-timeout", "0"}, 2, "1 or more"},
        {{"sensitivity", "7"}, 0, "mouse sensitivity 7"},
        {{"inject", "EV_REL", "REL_X", "10"}, 0, "injected EV_REL REL_X 10"},
        {{"inject", "EV_REL", "KEY_A", "1"}, 2, "unknown event"},
        {{"direction", "0", "1"}, 0, "ignores it"},
        {{"recovery-screen"}, 0, "does nothing"},
        {{"touchscreen", "off", "main"}, 0, "board touchscreen switched off"},
        {{"calibration", "type", "0"}, 0, "seat 0: can be calibrated"},
        {{"calibration", "type", "5"}, 0, "seat 5: cannot be calibrated"},
        {{"calibration", "get", "0"}, 0, "seat 0: 0 0 0 0 0 0 0"},
        {{"calibration", "get", "1"}, 1, "refused: no touchscreen that can be calibrated serves screen 1"},
        {{"calibration", "set", "0", "1", "2", "3", "4", "5", "6", "65536"}, 0, "seat 0: parameters set"},
        {{"calibration", "set", "0", "1", "2", "3", "4", "5", "6", "0"}, 2, "cannot be 0"},
        {{"calibration", "save", saved_}, 0, "saved 1 touchscreen(s)"},
        {{"calibration", "set", "0", "9", "9", "9", "9", "9", "9", "65536"}, 0, "parameters set"},
        {{"calibration", "restore", saved_}, 0, "seat 0: restored"},
        {{"calibration", "get", "0"}, 0, "seat 0: 1 2 3 4 5 6 65536"},
        {{"calibration", "enter", "5"}, 1, "refused: seat 5 has no touchscreen that can be calibrated"},
        {{"calibration", "enter", "0"}, 0, "seat 0 is calibrating"},
        {{"calibration", "point", "0", "1"}, 0, "target 1"},
        {{"calibration", "compute", "0", "1,1", "2,2", "3,3", "4,4", "5,5"}, 1, "not ready"},
        {{"calibration", "quit", "0"}, 0, "back in normal mode"},
        {{"mode"}, 2, "did you mean:\n  tactorctl mode get"},
        {{"mode", "--help"}, 0, "usage: tactorctl mode get \n"},
        {{"help", "ipc", "address"}, 0, "usage: tactorctl ipc address A.B.C.D"},
        {{"-h"}, 0, "usage: tactorctl [--socket PATH]"},
        {{"--version"}, 0, "tactorctl 17.0221.1137\n"},
        {{"register", "0", "--count"}, 2, "option --count needs a value"},
        {{"ipc-window", "open", "2", "1", "1", "9", "9"}, 2, "bad screen '2'"},
        {{"ipc-window", "open", "0", "1", "1", "x", "9"}, 2, "X2 'x' is not a pixel position"},
        {{"mode", "set", "extern", "--grid", "0,0,0,1,0,0,0,0,0"}, 2, "needs a grid with a main (1) and a sub (2) cell"},
        {{"mode", "set", "clone", "--ipc-extern"}, 2, "needs a grid with an IPC screen (3) cell"},
        {{"--socket", root_.at("/nowhere.sock"), "version"}, 1, "control socket " + root_.at("/nowhere.sock")},
        {{"config", "check", TACTORD_SOURCE_DIR "/etc/port.conf"}, 0, "seat 5   usb-musb-hdrc.0-1"},
        {{"devices", "--conf", conf_}, 0, "/dev/event0   touchscreen (needs calibration) \"Board Touch Panel\"       tsc/input0   "
                                          "                -    0      no seat-file row matches: a non-USB input of screen 0; "
                                          "calibration seat 0\n"},
        {{"devices", "--conf", conf_}, 0, "/dev/event1   touchscreen                     \"USB Touchscreen\"         "
                                          "usb-musb-hdrc.0-1/input0     5    0      "},
        {{"devices", "--conf", conf_}, 0, "/dev/event2   keyboard                        \"Test Keyboard\"           "
                                          "usb-musb-hdrc.1-1.1/input0   1    0      "},
        {{"devices", "--json", "--conf", conf_}, 0, "{\"node\":\"/dev/event2\",\"name\":\"Test Keyboard\",\"port\":"
                                                    "\"usb-musb-hdrc.1-1.1/input0\",\"usb_id\":\"046d:c31c\",\"type\":\"keyboard\","
                                                    "\"needs_calibration\":false,\"handled\":true,\"seat\":1,\"screen\":0,"
                                                    "\"calibration_seat\":null,"},
        {{"led", "num", "on"}, 0, ""},
        {{"--socket", root_.at("/none.sock")}, 1, root_.at("/none.sock"), TACTORD_EVENTS_BINARY},
        {{"--screen", "2"}, 2, "", TACTORD_EVENTS_BINARY},
        {{"--help"}, 0, "", TACTORD_EVENTS_BINARY},
    };
    for (const Case& c : cases)
        expect_says(tool_, c);
    EXPECT_THAT(read_file(saved_), HasSubstr("\n0 1 2 3 4 5 6 65536\n"));
    EXPECT_TRUE(daemon_->wait_for("g_MouseSensitivityValue = 7\n") && daemon_->wait_for("vnc input\n"));
    EXPECT_THAT(testsupport::brief(bed_.written(2, 3s)), testing::ElementsAre(testsupport::Ev{EV_LED, LED_NUML, 1}));
}

// Needs no daemon: each broken seat file is an error naming its line; what the parser accepts gets warnings.
TEST(ConfigCheck, RefusesEachBrokenFileNamingTheLine)
{
    testsupport::ScratchRoot root;
    const std::string conf = root.at("/bad.conf"), terminal = "StartSection \"Terminal\"\n  Screen 0\n  InputDevice 1\nEndSection\n";
    const Args check = {"config", "check", conf};
    const std::pair<std::string, Case> cases[] = {
        {"StartSection \"Input\"\n  usb-a 1\n  usb-a.2 2\nEndSection\n", {check, 0, "row 2 \"usb-a.2\" is never matched"}},
        {"StartSection \"Terminal\"\n  Screen 1\n  InputDevice 3\nEndSection\n", {check, 0, "seat 3 of screen 1 has no Input row"}},
        {"", {check, 1, "bad.conf:1: the file is empty"}},
        {"# only a comment\n", {check, 1, "bad.conf:1: no section at all"}},
        {terminal + std::string("\x7f" "ELF\0\1", 6), {check, 1, "bad.conf:5: binary data"}},
        {"StartSection \"Input\"\n  usb-a 1\n  lonely\nEndSection\n", {check, 1, "bad.conf:3: 'lonely' has no value"}},
        {"StartSection \"Terminal\"\n  Screen 0\n", {check, 1, "bad.conf:1: this section has no EndSection"}},
        {terminal + "StartSection \"Screens\"\nEndSection\n", {check, 1, "bad.conf:5: unknown section \"Screens\""}},
        {"StartSection \"Input\"\n  usb-a one\nEndSection\n", {check, 1, "bad.conf:2: seat 'one' is not a number 1..15"}},
        {terminal + "StartSection \"Terminal\"\n  Screen 0\nEndSection\n",
         {check, 1, "bad.conf:6: a second Terminal for screen 0 (the first is at line 2)"}},
        {"", {{"config", "check", root.path()}, 1, "is a directory"}},
        {"# seat p0..p6\n0 1 2 3\n", {{"calibration", "restore", conf}, 2, "bad.conf:2: expected a seat 0..14 and seven parameters"}},
    };
    for (const auto& [text, c] : cases) {
        testsupport::write_file(conf, text);
        expect_says(root.at("/tool"), c);
    }
}

// A refused or interrupted run ends calibration mode and keeps the transform it found.
TEST_F(Tools, CalibrateFitsFiveTargetsOnTheFramebufferOrEndsKeepingTheOldTransform)
{
    ASSERT_EQ(ctl({"calibration", "set", "0", "1", "2", "3", "4", "5", "6", "65536"}).status, 0);
    testsupport::ProgramRun r = calibrate(3);
    EXPECT_EQ(r.status, 1) << r.out;
    EXPECT_THAT(r.err, HasSubstr("refused: target"));
    // Ctrl-C at the first target also clears it from the screen.
    pid_t pid = start(tool_, {"calibrate", "0", "--fb", "/dev/fb0", "--conf", conf_});
    ASSERT_TRUE(testsupport::wait_for_file_text(tool_ + ".out", "target 1 of 5 at 128,80"));
    EXPECT_EQ(pixel(128, 80), 0xFFFFFFFFu);
    kill(pid, SIGINT);
    r = testsupport::finish_program(pid, tool_);
    EXPECT_EQ(r.status, 1);
    EXPECT_THAT(r.err, HasSubstr("interrupted at target 1"));
    EXPECT_THAT(r.out, HasSubstr("calibration mode ended"));
    EXPECT_EQ(pixel(128, 80), 0u);
    EXPECT_THAT(ctl({"calibration", "get", "0"}).out, HasSubstr("seat 0: 1 2 3 4 5 6 65536"));

    r = calibrate();
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_THAT(r.out, HasSubstr("  target 1 at 128,80: lands at 127,79, 1.4\n"));  // the integer fit truncates
    EXPECT_THAT(read_file(saved_), HasSubstr("\n0 "));
    // Its test mode shows where a touch lands.
    pid = start(tool_, {"calibrate", "--test", "main", "--count", "1", "--conf", conf_});
    ASSERT_TRUE(testsupport::wait_for_file_text(tool_ + ".out", "touch the screen")) << read_file(tool_ + ".err");
    touch(100 + 3 * 640, 200 + 4 * 400);
    r = testsupport::finish_program(pid, tool_);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_THAT(r.out, HasSubstr("released at 639,399\n"));
}

}  // namespace
