// The simulated panel itself: failed commands and expectations make a script fail; recordings, typing
// and hot plug reach the clients and the device listing; the screen is saved as a PNG; its own
// clients are chosen and the end of one reported; a sandbox serves one panel at a time.
// Scenarios of the daemon's behaviour: tests/scenarios/*.sim, each a ctest test of its own.
#include <future>

#include "support/system_common.h"

namespace {

// tactord-sim --script root/NAME.sim --root root/sandbox ARGS run in root, the script written there:
// its exit status and everything it printed (in root/NAME.out as it goes).
std::pair<int, std::string> run_sim(const testsupport::ScratchRoot& root, const std::string& script,
                                    const std::string& args = "", const std::string& name = "/sim")
{
    testsupport::write_file(root.at(name + ".sim"), script);
    const int status = testsupport::run_command("cd " + root.path() + " && " TACTORD_SIM_BINARY " --script " +
                                                root.at(name + ".sim") + " --root " + root.at("/sandbox") + " " + args +
                                                " >" + root.at(name + ".out") + " 2>&1")
                           .second;
    return {status, testsupport::read_file(root.at(name + ".out"))};
}

TEST(SimulatedPanel, RecordingsTypingAndHotPlugReachTheClientsAndFailuresFailTheScript)
{
    testsupport::ScratchRoot root;
    testsupport::write_file(root.at("/wheel.events"),
                            "# EVEMU 1.3\nN: Recorded Mouse\nB: 00 07\nB: 01 00 00 07\nB: 02 03 01\n"
                            "E: 0.000000 0002 0000 25\nE: 0.000000 0000 0000 0\n"
                            "E: 0.050000 0002 0008 -1\nE: 0.050000 0000 0000 0\n");
    const std::string events = root.at("/wheel.events");
    const auto [status, out] = run_sim(root, "mode extern\n"
                                             "type Hi\n"
                                             "expect screen 0 EV_KEY KEY_LEFTSHIFT press\n"
                                             "expect screen 0 EV_KEY KEY_I release\n"
                                             "replay " + events + " fast\n"
                                             "expect mouse REL_WHEEL -1\n"
                                             "plug " + events + " as recorded\n"
                                             "replay " + events + " on recorded fast\n"
                                             "expect screen 0 EV_ABS ABS_X\n"
                                             "unplug keyboard\n"
                                             "key a\n"
                                             "plug keyboard\n"
                                             "key KEY_B\n"
                                             "expect screen 0 EV_KEY KEY_B press\n"
                                             "expect screen 9 nothing\n");
    // Only the last expectation and the key of the unplugged keyboard fail.
    EXPECT_EQ(status, 1) << out;
    EXPECT_NE(out.find("sim          !! keyboard is not plugged in\n"), std::string::npos) << out;
    EXPECT_NE(out.find("sim          -- script done, 2 failure(s)\n"), std::string::npos) << out;
    // The board takes nodes 0 to 4 (the scanner last).
    EXPECT_NE(out.find("recorded     -- plugged in as /dev/event5"), std::string::npos) << out;
    EXPECT_NE(out.find("keyboard     -- plugged in as /dev/event6"), std::string::npos) << out;
    const std::string listing = testsupport::read_file(root.at("/sandbox/proc/bus/input/devices"));
    EXPECT_NE(listing.find("N: Name=\"Recorded Mouse\"\nP: Phys=usb-musb-hdrc.0-1.4/input0\n"), std::string::npos);
    EXPECT_NE(listing.find("H: Handlers=sysrq kbd leds event6 \n"), std::string::npos) << listing;
    EXPECT_EQ(listing.find("event2 "), std::string::npos) << listing;  // the keyboard's first node is gone
}

// While a panel whose own client holds the sub screen only saves the screen, a second panel on its
// sandbox is refused; the end of the client, ended from outside, is reported.
TEST(SimulatedPanel, TheScreenIsSavedAsAPngOwnClientsAreAsChosenAndASandboxInUseIsRefused)
{
    testsupport::ScratchRoot root;
    auto first = std::async(std::launch::async, run_sim, std::cref(root),
                            "expect screen 1 reply TYPE_MODE_GET\nsnapshot screen.png\n"
                            "expect sim the display client of screen 1 ended\n",
                            "--clients 1", "/sim");
    ASSERT_TRUE(testsupport::wait_for_file_text(root.at("/sim.out"), "written to screen.png"));
    const auto [status, out] = run_sim(root, "wait 1\n", "", "/second");
    EXPECT_EQ(status, 1);
    const std::string refusal = "tactord-sim: sandbox " + root.at("/sandbox") + " is in use: tactord-sim is already running (pid ";
    ASSERT_EQ(out.substr(0, refusal.size()), refusal) << out;
    EXPECT_NE(testsupport::read_file("/proc/" + std::to_string(std::atoi(out.c_str() + refusal.size())) + "/cmdline")
                  .find(root.at("/sim.sim")), std::string::npos) << "not the first one: " << out;
    const std::string so_far = testsupport::read_file(root.at("/sim.out")), client = "(tactord-events, pid ";
    ASSERT_NE(so_far.find(client), std::string::npos) << so_far;
    EXPECT_EQ(kill(std::stoi(so_far.substr(so_far.find(client) + client.size())), SIGTERM), 0);
    const auto [first_status, first_out] = first.get();
    EXPECT_EQ(first_status, 0) << first_out;
    EXPECT_EQ(first_out.find("screen 0     <<"), std::string::npos) << first_out;
    // A PNG of the board's 1280x800 screen.
    const std::string png = testsupport::read_file(root.at("/screen.png"));
    ASSERT_GT(png.size(), 24u);
    EXPECT_EQ(png.substr(0, 16), std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16));
    EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x05\x00\0\0\x03\x20", 8));
}

}  // namespace
