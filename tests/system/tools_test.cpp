// tactorctl and tactord-events against the real daemon with the simulated
// board's devices: every subcommand once with its output and exit status,
// their refusals and error paths, and what a display client prints.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <linux/input.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "sim/daemon_process.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

// Runs a tool to its end; its output goes through files in the scratch root.
ToolRun run(const std::string& root, const std::string& binary, const std::vector<std::string>& args)
{
    const std::string out = root + "/tool.out";
    const std::string err = root + "/tool.err";
    const pid_t pid = fork();
    if (pid == 0) {
        std::vector<std::string> store = {binary};
        store.insert(store.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& a : store)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(o, STDOUT_FILENO);
        dup2(e, STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, testsupport::read_file(out), testsupport::read_file(err)};
}

class Tools : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The board: the panel on node 0 (seat 0 for calibration), the USB
        // touchscreen (seat 5), the keyboard on node 2.
        for (std::size_t i = 0; i < 3; ++i)
            ASSERT_TRUE(bed_.add(static_cast<int>(i), emul::board()[i].dev));
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"));
        ASSERT_TRUE(daemon_->started());
        ASSERT_TRUE(daemon_->wait_for("/dev/event2 is keyboard...\n"));
        ASSERT_TRUE(daemon_->wait_for("nice is "));
    }
    ToolRun ctl(const std::vector<std::string>& args) { return run(root_.path(), TACTORCTL_BINARY, args); }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/work"));
    emul::EvdevTestbed bed_;
    emul::FramebufferEmulator fb_{bed_.testbed(), emul::kBoardWidth, emul::kBoardHeight};
    std::unique_ptr<emul::DaemonProcess> daemon_;
};

TEST_F(Tools, EverySubcommandPrintsWhatTheDaemonDidOrWhyNot)
{
    const std::string saved = root_.at("/cali.conf");
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string out;  // expected in standard output (or standard error for a failure)
    } cases[] = {
        {{"version"}, 0, "tactord 17.0221.1137\nagent -"},
        {{"mode", "get"}, 0, "clone\n"},
        {{"mode", "set", "extern", "--grid", "0,0,0,1,2,0,0,0,0"}, 0, "extern\n"},
        {{"mode", "get"}, 0, "extern\n"},
        {{"register", "1", "--count", "1"}, 0, "reply TYPE_MODE_GET: extern\n"},
        {{"mode", "set", "sideways"}, 2, "unknown mode 'sideways'"},
        {{"mode", "set", "clone", "--grid", "1,2"}, 2, "--grid takes nine cells"},
        {{"ipc-window", "open", "0", "100", "100", "900", "700"}, 0, "IPC window open on screen 0 (100,100)-(900,700)"},
        {{"ipc-window", "get"}, 0, "IPC window open on screen 0 (100,100)-(900,700)"},
        {{"mode", "get"}, 0, "extern ipc-window\n"},
        {{"ipc-window", "cutout", "add", "0", "10", "10", "20", "20"}, 0, "cut-out add done on screen 0"},
        {{"ipc-window", "cutout", "clear", "1"}, 1, "refused: screen 1 has no IPC window"},
        {{"ipc-window", "close"}, 0, "IPC window closed"},
        {{"ipc-window", "close"}, 1, "refused: no IPC window is open"},
        {{"ipc-window", "open", "0", "900", "100", "100", "700"}, 2, "X1 < X2"},
        {{"ipc", "connected"}, 0, "not connected"},
        {{"ipc", "extended-screen"}, 0, "extended screen 0"},
        {{"ipc", "command", "reboot"}, 1, "refused: the remote computer is not connected"},
        {{"ipc", "address", "173.0.0.9"}, 0, "agent address 173.0.0.9"},
        {{"ipc", "address", "999.0.0.1"}, 2, "dotted IPv4"},
        {{"cursor-timeout", "10"}, 0, "after 10 s"},
        {{"cursor-timeout", "0"}, 2, "1 or more"},
        {{"sensitivity", "7"}, 0, "mouse sensitivity 7"},
        {{"sensitivity", "11"}, 2, "from 1 to 10"},
        {{"inject", "EV_REL", "REL_X", "10"}, 0, "injected EV_REL REL_X 10"},
        {{"inject", "EV_REL", "KEY_A", "1"}, 2, "unknown event"},
        {{"direction", "0", "1"}, 0, "ignores it"},
        {{"recovery-screen"}, 0, "does nothing"},
        {{"touchscreen", "off", "main"}, 0, "board touchscreen switched off"},
        {{"touchscreen", "on", "sub"}, 0, "USB touchscreen switched on"},
        {{"calibration", "type", "0"}, 0, "seat 0: can be calibrated"},
        {{"calibration", "type", "5"}, 0, "seat 5: cannot be calibrated"},
        {{"calibration", "get", "0"}, 0, "seat 0: 0 0 0 0 0 0 0"},
        {{"calibration", "get", "1"}, 1, "refused: no touchscreen that can be calibrated serves screen 1"},
        {{"calibration", "set", "0", "1", "2", "3", "4", "5", "6", "65536"}, 0, "seat 0: parameters set"},
        {{"calibration", "set", "0", "1", "2", "3", "4", "5", "6", "0"}, 2, "cannot be 0"},
        {{"calibration", "save", saved}, 0, "saved 1 touchscreen(s)"},
        {{"calibration", "set", "0", "9", "9", "9", "9", "9", "9", "65536"}, 0, "parameters set"},
        {{"calibration", "restore", saved}, 0, "seat 0: restored"},
        {{"calibration", "get", "0"}, 0, "seat 0: 1 2 3 4 5 6 65536"},
        {{"calibration", "enter", "5"}, 1, "refused: seat 5 has no touchscreen that can be calibrated"},
        {{"calibration", "enter", "0"}, 0, "seat 0 is calibrating"},
        {{"calibration", "point", "0", "6"}, 2, "a target 1..5"},
        {{"calibration", "point", "0", "1"}, 0, "target 1"},
        {{"calibration", "compute", "0", "1,1", "2,2", "3,3", "4,4", "5,5"}, 1, "not ready"},
        {{"calibration", "quit", "0"}, 0, "back in normal mode"},
        {{"mode"}, 2, "did you mean:\n  tactorctl mode get"},
        {{"calibration", "get", "--help"}, 0, "usage: tactorctl calibration get SCREEN"},
        {{"--socket", root_.at("/nowhere.sock"), "version"}, 1, "control socket " + root_.at("/nowhere.sock")},
        {{"config", "check", TACTORD_SOURCE_DIR "/etc/port.conf"}, 0, "seat 5   usb-musb-hdrc.0-1"},
    };
    for (const Case& c : cases) {
        const ToolRun r = ctl(c.args);
        std::string line;
        for (const auto& a : c.args)
            line += a + " ";
        EXPECT_EQ(r.status, c.status) << line << "\n" << r.out << r.err;
        EXPECT_NE((c.status == 0 ? r.out : r.err).find(c.out), std::string::npos) << line << "\n" << r.out << r.err;
    }
    EXPECT_NE(testsupport::read_file(saved).find("\n0 1 2 3 4 5 6 65536\n"), std::string::npos);
    EXPECT_TRUE(daemon_->wait_for("g_MouseSensitivityValue = 7\n"));
    EXPECT_TRUE(daemon_->wait_for("vnc input\n"));
}

TEST_F(Tools, ConfigCheckAndRestoreNameTheLineThatIsWrong)
{
    const std::string conf = root_.at("/bad.conf");
    struct Case {
        std::string text;
        int status;
        std::string says;
    } cases[] = {
        {"StartSection \"Input\"\n  usb-a 1\n  usb-a.2 2\nEndSection\n", 0, "row 2 \"usb-a.2\" is never matched"},
        {"StartSection \"Terminal\"\n  Screen 1\n  InputDevice 3\nEndSection\n", 0, "seat 3 of screen 1 has no Input row"},
        {"StartSection \"Input\"\n  usb-a 1\n  lonely\nEndSection\n", 1, "bad.conf:3: not understood"},
        {"StartSection \"Terminal\"\n  Screen 0\n", 1, "bad.conf:1: this section has no EndSection"},
    };
    for (const Case& c : cases) {
        testsupport::write_file(conf, c.text);
        const ToolRun r = ctl({"config", "check", conf});
        EXPECT_EQ(r.status, c.status) << c.text << r.out << r.err;
        EXPECT_NE((r.out + r.err).find(c.says), std::string::npos) << c.text << r.out << r.err;
    }
    testsupport::write_file(conf, "# seat p0..p6\n0 1 2 3\n");
    const ToolRun r = ctl({"calibration", "restore", conf});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("bad.conf:2: expected a seat 0..14 and seven parameters"), std::string::npos) << r.err;
}

TEST_F(Tools, LedRequestLightsTheScreensKeyboards)
{
    bed_.written(2, 3s);  // the LED the registry clears at plug-in
    const ToolRun r = ctl({"led", "num", "on"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto written = bed_.written(2, 3s);
    ASSERT_FALSE(written.empty());
    EXPECT_EQ(written[0].type, EV_LED);
    EXPECT_EQ(written[0].code, LED_NUML);
    EXPECT_EQ(written[0].value, 1);
}

TEST_F(Tools, EventsClientPrintsItsRecordsDecoded)
{
    // A client of the sub screen sees the extended mode come in: it loses
    // the cursor, which is hidden.
    const std::string out = root_.at("/events.out");
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, STDOUT_FILENO);
        execl(TACTORD_EVENTS_BINARY, TACTORD_EVENTS_BINARY, "--screen", "1", "--json", "--count", "3",
              static_cast<char*>(nullptr));
        _exit(127);
    }
    ASSERT_TRUE(testsupport::wait_for_file_text(out, "\"record\":\"reply\""));
    ASSERT_EQ(ctl({"mode", "set", "extern"}).status, 0);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(testsupport::read_file(out),
              "{\"record\":\"reply\",\"type\":2,\"scr_index\":2053338226,\"type_name\":\"TYPE_MODE_GET\",\"mode\":1,"
              "\"mode_name\":\"clone\",\"text\":\"clone\"}\n"
              "{\"record\":\"cursor\",\"sec\":0,\"usec\":0,\"type\":27,\"code\":1,\"value\":0,\"text\":\"cursor lost\"}\n"
              "{\"record\":\"cursor-show\",\"sec\":0,\"usec\":0,\"type\":33,\"code\":0,\"value\":0,\"text\":\"cursor "
              "hide\"}\n");

    // Its error paths.
    const ToolRun missing = run(root_.path(), TACTORD_EVENTS_BINARY, {"--socket", root_.at("/none.sock")});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find(root_.at("/none.sock")), std::string::npos);
    EXPECT_EQ(run(root_.path(), TACTORD_EVENTS_BINARY, {"--screen", "2"}).status, 2);
    EXPECT_EQ(run(root_.path(), TACTORD_EVENTS_BINARY, {"--help"}).status, 0);
}

}  // namespace
