// The supervisors that restart the daemon after its watchdog has aborted it:
// the systemd unit passes systemd-analyze, and the BusyBox inittab line
// starts the daemon in the directory of its port.conf.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "harness/display_client.h"
#include "harness/drill.h"
#include "harness/target.h"
#include "sim/evdev_testbed.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;

const std::string kPackaging = TACTORD_SOURCE_DIR "/packaging/";

std::string replaced(std::string text, const std::string& what, const std::string& with)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

// Output (both streams) and exit status of a shell command.
std::pair<std::string, int> run(const std::string& command)
{
    std::string out;
    FILE* p = popen((command + " 2>&1").c_str(), "r");
    if (p == nullptr)
        return {"", -1};
    char buf[512];
    while (std::fgets(buf, sizeof buf, p) != nullptr)
        out += buf;
    const int status = pclose(p);
    return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

TEST(Packaging, TheSystemdUnitVerifiesAndRestartsTheDaemonAlways)
{
    TACTORD_HOST_ONLY("the unit is verified with this build's binary, the one systemd-analyze can run");
    const std::string unit = testsupport::read_file(kPackaging + "tactord.service");
    for (const char* line : {"ExecStart=/usr/sbin/tactord -p 1\n", "WorkingDirectory=/etc/tactord\n", "Restart=always\n"})
        EXPECT_NE(unit.find(line), std::string::npos) << line;
    if (run("command -v systemd-analyze").second != 0)
        GTEST_SKIP() << "systemd-analyze is not installed (scripts/install-deps brings it with systemd)";
    // As installed, but with the binary where the build put it: verify
    // checks that the command exists. Any warning counts.
    testsupport::ScratchRoot scratch;
    const std::string copy = scratch.at("/tactord.service");
    testsupport::write_file(copy, replaced(unit, "/usr/sbin/tactord", TACTORD_BINARY));
    const auto [out, status] = run("systemd-analyze verify " + copy);
    EXPECT_EQ(status, 0) << out;
    EXPECT_EQ(out, "");
}

TEST(Packaging, TheInittabLineRespawnsTheDaemonInTheDirectoryOfItsPortConf)
{
    TACTORD_HOST_ONLY("the inittab line execs the binary itself, which this machine runs only through qemu-arm");
    std::ifstream file(kPackaging + "inittab");
    std::string line, entry;
    while (std::getline(file, line))
        if (!line.empty() && line[0] != '#')
            entry = line;
    // id:runlevels:action:process, BusyBox ignoring the runlevels.
    std::smatch m;
    ASSERT_TRUE(std::regex_match(entry, m, std::regex("([^:]*):([^:]*):respawn:(.+)"))) << entry;
    // BusyBox init hands a command with shell characters to "sh -c" behind
    // an "exec"; the paths are the installed ones, put into a scratch root.
    testsupport::ScratchRoot root;
    const std::string workdir = root.at("/etc/tactord");
    testsupport::write_port_conf(workdir);
    emul::EvdevTestbed bed;  // the daemon's /dev and /sys are emulated
    const std::string command =
        "exec " + replaced(replaced(m[3].str(), "/usr/sbin/tactord", TACTORD_BINARY), "/etc/tactord", workdir);
    const pid_t pid = fork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    ASSERT_GT(pid, 0);
    testharness::DisplayClient c(root.path());
    EXPECT_TRUE(c.connected() && testharness::round_trip(c, 1)) << command;
    std::error_code ec;
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", ec), TACTORD_BINARY);
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/cwd", ec), workdir);
    kill(pid, SIGKILL);
    EXPECT_EQ(testharness::wait_end(pid, 10s), SIGKILL);
}

}  // namespace
