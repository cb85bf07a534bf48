// What an integrator installs, and the supervisors that restart the daemon after its watchdog aborts it.
#include <regex>

#include "support/system_common.h"

namespace {

using testing::HasSubstr;
using testsupport::read_file;
using testsupport::run_command;

// cmake --install of this build tree: empty when it worked, else its output.
std::string install(const std::string& options, const std::string& destdir = "")
{
    const auto [out, status] = run_command("DESTDIR='" + destdir + "' " TACTORD_CMAKE " --install " TACTORD_BUILD_DIR " " + options);
    return status == 0 ? "" : out;
}

class Packaging : public testing::Test {
protected:
    void SetUp() override { TACTORD_HOST_ONLY("it installs and runs this build tree, whose binaries run here without an emulator"); }
    testsupport::ScratchRoot scratch_;
};

// Then the whole install, stripped, below a scratch prefix: systemd-analyze verify checks that the commands the
// units name exist; any warning counts.
TEST_F(Packaging, EachComponentInstallsItsFilesAndTheStrippedInstallsUnitsVerifyAndItsDaemonRuns)
{
    const std::string lib = "./usr/" TACTORD_INSTALL_LIBDIR "/", units = "./usr/lib/systemd/system/";
    const std::pair<std::string, std::string> components[] = {
        {"daemon",
         "./etc/tactord/port.conf\n" + units + "tactord-calibration.service\n" + units + "tactord.service\n./usr/sbin/tactord\n"},
        {"tools", "./usr/bin/tactorctl\n./usr/bin/tactord-events\n"},
        {"usbgun_c", "./usr/include/usbgun_c.h\n" + lib + "libusbgun_c.so\n" + lib + "libusbgun_c.so.1\n" + lib +
                         "libusbgun_c.so.1.0.0\n" + lib + "pkgconfig/usbgun_c.pc\n"},
    };
    for (const auto& [component, files] : components) {
        const std::string dest = scratch_.at("/" + component);
        EXPECT_EQ(install("--prefix /usr --component " + component, dest), "");
        EXPECT_EQ(run_command("cd " + dest + " && find . ! -type d | LC_ALL=C sort").first, files) << component;
    }
    const std::string unit = read_file(scratch_.at("/daemon/") + units + "tactord.service");
    EXPECT_THAT(unit, HasSubstr("WorkingDirectory=/etc/tactord\n"));
    EXPECT_THAT(unit, HasSubstr("ExecStart=/usr/sbin/tactord -p 1\n"));
    EXPECT_THAT(read_file(scratch_.at("/daemon/") + units + "tactord-calibration.service"),
                HasSubstr("ExecStart=/usr/bin/tactorctl calibration restore /etc/tactord/calibration.conf\n"));

    if (run_command("command -v systemd-analyze").second != 0)
        GTEST_SKIP() << "systemd-analyze is not installed (scripts/install-deps brings it with systemd)";
    const std::string prefix = scratch_.at("/usr"), installed = prefix + "/lib/systemd/system/";
    ASSERT_EQ(install("--strip --prefix " + prefix), "");
    EXPECT_EQ(run_command("systemd-analyze verify " + installed + "tactord.service " + installed + "tactord-calibration.service"),
              std::make_pair(std::string(), 0));
    EXPECT_THAT(read_file(installed + "tactord.service"), HasSubstr("WorkingDirectory=" + prefix + "/etc/tactord\n"));
    EXPECT_EQ(run_command(prefix + "/sbin/tactord --version"), std::make_pair(std::string("tactord 17.0221.1137\n"), 0));
    const auto [usage, help_status] = run_command(prefix + "/sbin/tactord --help");
    EXPECT_TRUE(help_status == 0 && usage.starts_with("Usage: tactord [-d LEVEL] [-p DEST] [-t TYPE] [-i 0|1]\n")) << usage;
}

TEST_F(Packaging, TheInittabLineRespawnsTheDaemonInTheDirectoryOfItsPortConf)
{
    // The last line that is not a comment: id:runlevels:respawn:process, run as BusyBox does ("sh -c 'exec ...'"),
    // with the installed paths moved into the scratch root.
    std::ifstream file(TACTORD_SOURCE_DIR "/packaging/inittab");
    std::string line, entry;
    while (std::getline(file, line))
        entry = line.empty() || line[0] == '#' ? entry : line;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(entry, m, std::regex("([^:]*):([^:]*):respawn:(.+)"))) << entry;
    const std::string workdir = scratch_.at("/etc/tactord");
    testsupport::write_port_conf(workdir);
    emul::EvdevTestbed bed;
    const std::string binary = std::regex_replace(m[3].str(), std::regex("/usr/sbin/tactord"), TACTORD_BINARY);
    const std::string command = "exec " + std::regex_replace(binary, std::regex("/etc/tactord"), workdir);
    const pid_t pid = testsupport::start_program({"/bin/sh", "-c", command}, scratch_.at("/inittab"));
    testharness::DisplayClient c(scratch_.path());
    EXPECT_TRUE(c.connected() && testharness::round_trip(c, 1)) << command;
    std::error_code ec;
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", ec), TACTORD_BINARY);
    EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/cwd", ec), workdir);
    kill(pid, SIGKILL);
    EXPECT_EQ(testharness::wait_end(pid, std::chrono::seconds(10)), SIGKILL);
}

}  // namespace
