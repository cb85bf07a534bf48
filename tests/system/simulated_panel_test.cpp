// The simulated panel driven by a script, as a person would drive it at its
// prompt: the demonstration must produce its records, and plugging, typing,
// replaying and plugging in a recorded device must reach the clients.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/scratch_root.h"

namespace {

// Runs tactord-sim --script on text; its exit status and output.
std::pair<int, std::string> run_sim(const testsupport::ScratchRoot& root, const std::string& script)
{
    testsupport::write_file(root.at("/script.sim"), script);
    const std::string out = root.at("/sim.out");
    const pid_t pid = fork();
    if (pid == 0) {
        const int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(fd, STDOUT_FILENO);
        dup2(fd, STDERR_FILENO);
        const std::string script_path = root.at("/script.sim");
        const std::string sandbox = root.at("/sandbox");
        execl(TACTORD_SIM_BINARY, TACTORD_SIM_BINARY, "--script", script_path.c_str(), "--root", sandbox.c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, testsupport::read_file(out)};
}

TEST(SimulatedPanel, TheDemonstrationProducesItsRecords)
{
    testsupport::ScratchRoot root;
    const auto [status, out] = run_sim(root, "demo\n");
    // Every expectation of the demonstration was met.
    EXPECT_EQ(status, 0) << out;
    for (const char* line : {"screen 0     << EV_ABS ABS_X 1279\n", "screen 1     << cursor gained\n",
                             "screen 1     << focus gained\n", "screen 1     << lock Caps on\n",
                             "keyboard     << EV_LED LED_CAPSL on\n", "screen 0     << EV_KEY BTN_LEFT press\n",
                             "screen 0     << EV_KEY code 0xc7 press\n", "sim          -- script done\n"})
        EXPECT_NE(out.find(line), std::string::npos) << line << out;
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
    EXPECT_NE(out.find("recorded     -- plugged in as /dev/event4"), std::string::npos) << out;
    EXPECT_NE(out.find("keyboard     -- plugged in as /dev/event5"), std::string::npos) << out;
}

}  // namespace
