// The simulated panel driven by scripts, as a person would drive it at its
// prompt: the demonstration and the scenarios in scenarios/ must meet their
// own expectations; plugging, typing and replaying must reach the clients;
// a sandbox serves one panel at a time.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/scratch_root.h"

namespace {

const std::string kScenarios = TACTORD_SOURCE_DIR "/tests/system/scenarios/";

// Starts tactord-sim --script script --root root/sandbox [args] in root, its
// output into root + out.
pid_t start_sim(const testsupport::ScratchRoot& root, const std::string& script,
                const std::vector<std::string>& args = {}, const std::string& out = "/sim.out")
{
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(root.at(out).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, STDOUT_FILENO);
        dup2(fd, STDERR_FILENO);
        std::vector<std::string> words = {TACTORD_SIM_BINARY, "--script", script, "--root", root.at("/sandbox")};
        words.insert(words.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& w : words)
            argv.push_back(w.data());
        argv.push_back(nullptr);
        if (chdir(root.path().c_str()) == 0)
            execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

// Its exit status and everything it printed.
std::pair<int, std::string> finish_sim(const testsupport::ScratchRoot& root, pid_t pid,
                                       const std::string& out = "/sim.out")
{
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, testsupport::read_file(root.at(out))};
}

// Runs a scenario file, or a script given as text (lines).
std::pair<int, std::string> run_sim(const testsupport::ScratchRoot& root, const std::string& script,
                                    const std::vector<std::string>& args = {}, const std::string& out = "/sim.out")
{
    std::string file = script;
    if (script.find('\n') != std::string::npos)
        testsupport::write_file(file = root.at(out + ".sim"), script);
    return finish_sim(root, start_sim(root, file, args, out), out);
}

TEST(SimulatedPanel, TheDemonstrationAndTheScenariosMeetTheirExpectations)
{
    for (const char* script : {"demo\n", "scanners.sim", "snapshot.sim"}) {
        testsupport::ScratchRoot root;
        const std::string name = script;
        const auto [status, out] = run_sim(root, name.back() == '\n' ? name : kScenarios + name);
        EXPECT_EQ(status, 0) << script << "\n" << out;
        EXPECT_NE(out.find("sim          -- script done\n"), std::string::npos) << out;
        if (name == "snapshot.sim") {
            // A PNG of the board's 1280x800 screen.
            const std::string png = testsupport::read_file(root.at("/screen.png"));
            ASSERT_GT(png.size(), 24u);
            EXPECT_EQ(png.substr(0, 16), std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16));
            EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x05\x00\0\0\x03\x20", 8));
        }
    }
}

TEST(SimulatedPanel, RecordingsTypingAndHotPlugReachTheClients)
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

TEST(SimulatedPanel, OwnClientsAsChosenAndTheEndOfOneIsReported)
{
    testsupport::ScratchRoot root;
    const pid_t sim = start_sim(root, kScenarios + "clients.sim", {"--clients", "1"});
    // Once it has registered, the client is ended from outside.
    const std::string started = "display client of screen 1 (tactord-events, pid ";
    ASSERT_TRUE(testsupport::wait_for_file_text(root.at("/sim.out"), started));
    const std::string so_far = testsupport::read_file(root.at("/sim.out"));
    EXPECT_EQ(kill(std::stoi(so_far.substr(so_far.find(started) + started.size())), SIGTERM), 0);
    const auto [status, out] = finish_sim(root, sim);
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(out.find("screen 0     <<"), std::string::npos) << out;
}

TEST(SimulatedPanel, ASandboxInUseIsRefused)
{
    testsupport::ScratchRoot root;
    testsupport::write_file(root.at("/wait.sim"), "wait 5\n");
    const pid_t first = start_sim(root, root.at("/wait.sim"));
    ASSERT_TRUE(testsupport::wait_for_file_text(root.at("/sim.out"), "started in "));
    const auto [status, out] = run_sim(root, kScenarios + "snapshot.sim", {}, "/second.out");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(out, "tactord-sim: sandbox " + root.at("/sandbox") + " is in use: tactord-sim is already running (pid " +
                       std::to_string(first) + ")\n");
    EXPECT_EQ(finish_sim(root, first).first, 0);
}

}  // namespace
