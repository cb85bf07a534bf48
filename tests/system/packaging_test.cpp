// What an integrator installs and the supervisors that restart the daemon after its watchdog aborts it:
// each component's files, the systemd units as installed, the BusyBox inittab line.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>

#include "harness/display_client.h"
#include "harness/drill.h"
#include "harness/target.h"
#include "sim/evdev_testbed.h"
#include "support/scratch_root.h"
#include "support/shell.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testsupport::read_file;
using testsupport::run_command;

// Every file and link below dir, as paths relative to it, sorted.
std::set<std::string> tree(const std::string& dir)
{
    std::set<std::string> files;
    std::error_code ec;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir, ec))
        if (!e.is_directory())
            files.insert(e.path().lexically_relative(dir).string());
    return files;
}

// cmake --install of this build tree: empty when it worked, else its output.
std::string install(const std::string& options, const std::string& destdir = "")
{
    const auto [out, status] =
        run_command("DESTDIR='" + destdir + "' " TACTORD_CMAKE " --install " TACTORD_BUILD_DIR " " + options);
    return status == 0 ? "" : out;
}

TEST(Packaging, EachComponentInstallsItsFilesWithConfigurationInEtcForPrefixUsr)
{
    TACTORD_HOST_ONLY("it installs and runs this build tree, whose binaries run here without an emulator");
    const std::string lib = "usr/" TACTORD_INSTALL_LIBDIR "/", units = "usr/lib/systemd/system/";
    const std::map<std::string, std::set<std::string>> components = {
        {"daemon", {"usr/sbin/tactord", "etc/tactord/port.conf", units + "tactord.service",
                    units + "tactord-calibration.service"}},
        {"tools", {"usr/bin/tactorctl", "usr/bin/tactord-events"}},
        {"usbgun_c", {lib + "libusbgun_c.so", lib + "libusbgun_c.so.1", lib + "libusbgun_c.so.1.0.0",
                      lib + "pkgconfig/usbgun_c.pc", "usr/include/usbgun_c.h"}},
    };
    testsupport::ScratchRoot scratch;
    for (const auto& [component, files] : components) {
        const std::string dest = scratch.at("/" + component);
        EXPECT_EQ(install("--prefix /usr --component " + component, dest), "");
        EXPECT_EQ(tree(dest), files) << component;
    }
    const std::string unit = read_file(scratch.at("/daemon/") + units + "tactord.service");
    EXPECT_THAT(unit, HasSubstr("WorkingDirectory=/etc/tactord\n"));
    EXPECT_THAT(unit, HasSubstr("ExecStart=/usr/sbin/tactord -p 1\n"));
    EXPECT_THAT(read_file(scratch.at("/daemon/") + units + "tactord-calibration.service"),
                HasSubstr("ExecStart=/usr/bin/tactorctl calibration restore /etc/tactord/calibration.conf\n"));
}

TEST(Packaging, TheInstalledUnitsVerifyWithTheInstalledPathsAndTheStrippedDaemonRuns)
{
    TACTORD_HOST_ONLY("it installs and runs this build tree, whose binaries run here without an emulator");
    if (run_command("command -v systemd-analyze").second != 0)
        GTEST_SKIP() << "systemd-analyze is not installed (scripts/install-deps brings it with systemd)";
    // Installed below a scratch prefix: verify checks that the commands the units name exist; any warning counts.
    testsupport::ScratchRoot scratch;
    const std::string prefix = scratch.at("/usr");
    ASSERT_EQ(install("--strip --prefix " + prefix), "");
    const std::string units = prefix + "/lib/systemd/system/";
    EXPECT_EQ(run_command("systemd-analyze verify " + units + "tactord.service " + units + "tactord-calibration.service"),
              std::make_pair(std::string(), 0));
    EXPECT_THAT(read_file(units + "tactord.service"), HasSubstr("WorkingDirectory=" + prefix + "/etc/tactord\n"));
    EXPECT_EQ(run_command(prefix + "/sbin/tactord --version"), std::make_pair(std::string("tactord 17.0221.1137\n"), 0));
    const auto [usage, help_status] = run_command(prefix + "/sbin/tactord --help");
    EXPECT_TRUE(help_status == 0 && usage.starts_with("Usage: tactord [-d LEVEL] [-p DEST] [-t TYPE] [-i 0|1]\n")) << usage;
}

TEST(Packaging, TheInittabLineRespawnsTheDaemonInTheDirectoryOfItsPortConf)
{
    TACTORD_HOST_ONLY("it installs and runs this build tree, whose binaries run here without an emulator");
    std::ifstream file(TACTORD_SOURCE_DIR "/packaging/inittab");
    std::string line, entry;
    while (std::getline(file, line))
        if (!line.empty() && line[0] != '#')
            entry = line;
    // id:runlevels:action:process, BusyBox ignoring the runlevels.
    std::smatch m;
    ASSERT_TRUE(std::regex_match(entry, m, std::regex("([^:]*):([^:]*):respawn:(.+)"))) << entry;
    // BusyBox init runs a command with shell characters as "sh -c 'exec ...'"; the installed paths go into a scratch root.
    testsupport::ScratchRoot root;
    const std::string workdir = root.at("/etc/tactord");
    testsupport::write_port_conf(workdir);
    emul::EvdevTestbed bed;  // the daemon's /dev and /sys are emulated
    std::string command = std::regex_replace(m[3].str(), std::regex("/usr/sbin/tactord"), TACTORD_BINARY);
    command = "exec " + std::regex_replace(command, std::regex("/etc/tactord"), workdir);
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
