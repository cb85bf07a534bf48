// Fault drills of the scanner service against the real daemon, this process
// being its client: a CDC scanner unplugged under a session leader, two
// hundred client reconnects, and the client library outliving a killed daemon.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

#include "common/usb_gun/usbgun_c.h"
#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "harness/drill.h"
#include "support/scanner.h"

namespace {

using namespace testharness;
using testsupport::Bytes;

struct ScannerFaultDrills : DaemonTest {
    bool logged(const std::string& line, int n = 1)
    {
        return testsupport::wait_for_file_text(root_.at(SCANNER_LOG_PATH), line, n);
    }
    // The bytes of the next scan the client library holds, its record head aside.
    static Bytes scanned()
    {
        Bytes got(256);
        int n = 0;
        for (int i = 0; i < 300 && (n = UsbGunRead(got.data(), static_cast<int>(got.size()))) <= 0; ++i)
            usleep(10000);
        return n <= 24 ? Bytes{} : Bytes(got.begin() + 24, got.begin() + n);
    }
};

// Were the port opened as the daemon's controlling terminal, the unplug's
// hang-up would end it with SIGHUP. Port 1 is served until its node goes;
// probed again it is gone, and the reader moves on to port 2 (plugged first:
// the testbed may reuse port 1's hung-up pty for it).
TEST_F(ScannerFaultDrills, CdcScannerUnpluggedUnderASessionLeaderIsProbedAgain)
{
    emul::Launch session_leader;
    session_leader.session_leader = true;
    launch(emul::kStdoutLogArgs, session_leader);
    ASSERT_EQ(UsbGunInit({}), 0);
    ASSERT_EQ(UsbGunSetRouteInfo(eModeFixed, eScreenMain), 0);
    ASSERT_TRUE(logged("Create scanserver thread success...\r\n"));
    ASSERT_TRUE(bed_.add_acm(1) && logged("Usb Cdc ScanGun /dev/ttyACM1 is plugin...\r\n"));
    ASSERT_TRUE(bed_.write_acm(1, "42\r\n", 4));
    EXPECT_EQ(scanned(), (Bytes{'4', '2', '\r', '\n'}));
    ASSERT_TRUE(bed_.add_acm(2));
    bed_.hang_up_acm(1);
    ASSERT_TRUE(logged("Usb Cdc ScanGun /dev/ttyACM1 is plugout...\r\n"));
    ASSERT_TRUE(logged("Usb Cdc ScanGun /dev/ttyACM2 is plugin...\r\n"));
    ASSERT_TRUE(bed_.write_acm(2, "7\r\n", 3));
    EXPECT_EQ(scanned(), (Bytes{'7', '\r', '\n'}));
    EXPECT_TRUE(daemon_->alive());
}

TEST_F(ScannerFaultDrills, TwoHundredClientReconnectsLeaveTheDaemonsDescriptorsFlat)
{
    launch();
    const int first = connect_unix(SCANNER_SOCKET_PATH);
    ASSERT_TRUE(first >= 0 && logged("Create scanserver thread success...\r\n"));
    const int second = connect_unix(SCANNER_SOCKET_PATH);  // replaces the first
    ASSERT_TRUE(second >= 0 && logged("Usb scan unix client connected...\r\n", 2));
    usleep(500000);
    const int before = open_fds(pid());
    close(first);
    close(second);
    int last = -1;  // kept, as the second was
    for (int i = 0; i < 201; ++i) {
        if (last >= 0)
            close(last);
        ASSERT_GE(last = connect_unix(SCANNER_SOCKET_PATH), 0) << i;
    }
    ASSERT_TRUE(logged("Usb scan unix client connected...\r\n", 203));
    EXPECT_TRUE(testsupport::eventually([&] { return open_fds(pid()) == before; }, kServeBound))
        << before << " before:\n" << fd_targets(pid());
    close(last);
}

long cpu_ms()
{
    rusage use{};
    getrusage(RUSAGE_SELF, &use);
    return (use.ru_utime.tv_sec + use.ru_stime.tv_sec) * 1000L + (use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1000;
}

// Without a daemon a request fails at once, with a few connection attempts
// and no busy loop; the next daemon is found and given the configuration again.
TEST_F(ScannerFaultDrills, ClientLibraryOutlivesAKilledDaemonWithoutSpinningAndFindsTheNextOne)
{
    std::signal(SIGPIPE, SIG_DFL);  // a SIGPIPE in the library would end this test
    launch();
    ASSERT_EQ(UsbGunInit({}), 0);
    ASSERT_EQ(UsbGunConfigSet("Test Scanner", 1), 0);
    ASSERT_EQ(UsbGunDataTypeSet(eCdcData), 0);
    ASSERT_TRUE(logged("UsbGunDataTypeSetFun event comming...\r\n"));
    daemon_.reset();  // killed
    EXPECT_EQ(UsbGunDataTypeSet(eCdcData), -2);
    const long cpu_before = cpu_ms();
    sleep(1);
    EXPECT_LT(cpu_ms() - cpu_before, 250);
    EXPECT_EQ(UsbGunDataTypeSet(eCdcData), -2);
    launch();
    EXPECT_TRUE(logged("UsbGunNameSetFun event comming...\r\n", 2) && logged("UsbGunDataTypeSetFun event comming...\r\n", 2));
    EXPECT_EQ(UsbGunDataTypeSet(eKbdData), 0);
}

}  // namespace
