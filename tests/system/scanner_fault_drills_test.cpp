// Fault drills of the scanner service against the real daemon: a CDC scanner
// unplugged while the daemon leads its own session, two hundred client
// reconnects, and the client library outliving a killed daemon. This process
// is the scanner client (the client library, or raw sockets).
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>

#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_c.h"
#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "harness/drill.h"
#include "sim/daemon_process.h"
#include "sim/evdev_testbed.h"
#include "support/remote_link.h"
#include "support/scanner.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testsupport::Bytes;
using testsupport::eventually;

class ScannerFaultDrills : public ::testing::Test {
protected:
    void start(bool session_leader = false)
    {
        emul::Launch launch;
        launch.session_leader = session_leader;
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/w"), emul::kStdoutLogArgs, launch);
        ASSERT_TRUE(daemon_->started());
    }
    bool logged(const std::string& line, int n = 1)
    {
        return testsupport::wait_for_file_text(root_.at(SCANNER_LOG_PATH), line, n);
    }
    // A raw client of the scanner socket, once the service listens.
    static int connect_client()
    {
        int fd = -1;
        for (int i = 0; i < 250 && (fd = unix_client_open(SCANNER_SOCKET_PATH)) <= 0; ++i)
            usleep(20000);
        return fd;
    }
    // The bytes of the next scan the client library holds (one record).
    static Bytes scanned()
    {
        Bytes got(256);
        int n = 0;
        for (int i = 0; i < 300 && (n = UsbGunRead(got.data(), static_cast<int>(got.size()))) <= 0; ++i)
            usleep(10000);
        got.resize(static_cast<std::size_t>(std::max(n, 0)));
        return got.size() < 24 ? Bytes{} : Bytes(got.begin() + 24, got.end());
    }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/w"));
    emul::EvdevTestbed bed_;
    std::unique_ptr<emul::DaemonProcess> daemon_;
};

TEST_F(ScannerFaultDrills, CdcScannerUnpluggedUnderASessionLeaderIsProbedAgain)
{
    // As under a supervisor: were the port opened as its controlling
    // terminal, the unplug's hang-up would end the daemon with SIGHUP.
    start(true);
    ASSERT_EQ(UsbGunInit({}), 0);
    ASSERT_EQ(UsbGunSetRouteInfo(eModeFixed, eScreenMain), 0);
    ASSERT_TRUE(logged("Create scanserver thread success...\r\n"));
    ASSERT_TRUE(bed_.add_acm(1) && logged("Usb Cdc ScanGun /dev/ttyACM1 is plugin...\r\n"));
    ASSERT_TRUE(bed_.write_acm(1, "42\r\n", 4));
    EXPECT_EQ(scanned(), (Bytes{'4', '2', '\r', '\n'}));

    // A second scanner waits on port 2 (plugged first: the testbed's pty of
    // port 1, once hung up, may be reused for it). Port 1 is served until its
    // unplug removes its node; probed again after the pause, it is gone, and
    // the reader moves on to port 2.
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
    start();
    const int first = connect_client();
    ASSERT_TRUE(first > 0 && logged("Create scanserver thread success...\r\n"));
    const int second = connect_client();  // replaces the first
    ASSERT_TRUE(second > 0 && logged("Usb scan unix client connected...\r\n", 2));
    usleep(500000);
    const int before = testharness::open_fds(daemon_->pid());
    for (int fd : {first, second})
        close(fd);
    for (int i = 0; i < 200; ++i) {
        const int fd = connect_client();
        ASSERT_GT(fd, 0) << i;
        close(fd);
    }
    const int last = connect_client();
    ASSERT_TRUE(last > 0 && logged("Usb scan unix client connected...\r\n", 203));
    EXPECT_TRUE(eventually([&] { return testharness::open_fds(daemon_->pid()) == before; }, testharness::kServeBound))
        << before << " before:\n" << testharness::fd_targets(daemon_->pid());
    close(last);
}

long cpu_ms()
{
    rusage use{};
    getrusage(RUSAGE_SELF, &use);
    return (use.ru_utime.tv_sec + use.ru_stime.tv_sec) * 1000L + (use.ru_utime.tv_usec + use.ru_stime.tv_usec) / 1000;
}

TEST_F(ScannerFaultDrills, ClientLibraryOutlivesAKilledDaemonWithoutSpinningAndFindsTheNextOne)
{
    std::signal(SIGPIPE, SIG_DFL);  // a SIGPIPE in the library would end this test
    start();
    ASSERT_EQ(UsbGunInit({}), 0);
    ASSERT_EQ(UsbGunConfigSet("Test Scanner", 1), 0);
    ASSERT_EQ(UsbGunDataTypeSet(eCdcData), 0);
    ASSERT_TRUE(logged("UsbGunDataTypeSetFun event comming...\r\n"));

    daemon_.reset();  // killed
    EXPECT_EQ(UsbGunDataTypeSet(eCdcData), -2);
    const long cpu_before = cpu_ms();
    sleep(1);
    EXPECT_LT(cpu_ms() - cpu_before, 250);  // a few connection attempts, no busy loop
    EXPECT_EQ(UsbGunDataTypeSet(eCdcData), -2);

    // The next daemon is found and given the configuration again.
    start();
    EXPECT_TRUE(logged("UsbGunNameSetFun event comming...\r\n", 2) &&
                logged("UsbGunDataTypeSetFun event comming...\r\n", 2));
    EXPECT_EQ(UsbGunDataTypeSet(eKbdData), 0);
}

}  // namespace
