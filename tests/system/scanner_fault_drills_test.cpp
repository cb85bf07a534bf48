// Fault drills of the scanner service against the real daemon: a CDC scanner
// unplugged while the daemon leads its own session, a client program that
// reconnects two hundred times, and the client library outliving a killed
// daemon. This process is the scanner client (through the client library or
// raw sockets).
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_c.h"
#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "harness/drill.h"
#include "sim/daemon_process.h"
#include "sim/devices.h"
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
    void SetUp() override
    {
        // The inventory is read from here; a keyboard makes it non-empty.
        std::filesystem::create_directories(root_.at("/proc/bus/input"));
        testsupport::write_file(root_.at("/proc/bus/input/devices"),
                                testsupport::listed_device(1, 2, "Keyboard", "usb-1/input0", "kbd event4"));
    }
    void start(const emul::Launch& launch = {})
    {
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
    // The scan bytes of the records the client library receives, until n
    // bytes came or none came for a while.
    static Bytes scanned(std::size_t n)
    {
        Bytes ring;
        for (int idle = 0; idle < 300; ++idle) {
            uint8_t buf[256];
            const int got = UsbGunRead(buf, sizeof buf);
            ring.insert(ring.end(), buf, buf + std::max(got, 0));
            Bytes scan;
            for (std::size_t at = 0; at + 24 <= ring.size();) {
                const std::size_t len = testsupport::word_at(ring, at + 12);
                if (at + 24 + len > ring.size())
                    break;
                scan.insert(scan.end(), ring.begin() + at + 24, ring.begin() + at + 24 + len);
                at += 24 + len;
            }
            if (scan.size() >= n)
                return scan;
            usleep(10000);
        }
        return {};
    }
    void TearDown() override
    {
        if (HasFailure())
            std::fprintf(stderr, "%s", testsupport::read_file(root_.at(SCANNER_LOG_PATH)).c_str());
    }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/w"));
    emul::EvdevTestbed bed_;
    std::unique_ptr<emul::DaemonProcess> daemon_;
};

TEST_F(ScannerFaultDrills, CdcScannerUnpluggedUnderASessionLeaderIsProbedAgainItsBytesUnchanged)
{
    // As under a supervisor: were the port opened as its controlling
    // terminal, the unplug's hang-up would end the daemon with SIGHUP.
    emul::Launch leader;
    leader.session_leader = true;
    start(leader);
    ASSERT_EQ(UsbGunInit({}), 0);
    ASSERT_EQ(UsbGunSetRouteInfo(eModeFixed, eScreenMain), 0);
    ASSERT_TRUE(logged("Create scanserver thread success...\r\n"));
    ASSERT_TRUE(bed_.add_acm(1) && logged("Usb Cdc ScanGun /dev/ttyACM1 is plugin...\r\n"));
    ASSERT_TRUE(bed_.write_acm(1, "42\r\n\x11", 5));  // CR, LF and XON as the scanner sent them
    EXPECT_EQ(scanned(5), (Bytes{'4', '2', '\r', '\n', 0x11}));

    // A second scanner waits on port 2 (plugged first: the testbed's pty of
    // port 1, once hung up, may be reused for it). Port 1 is served until its
    // unplug; after the pause it is probed again, found gone, and the reader
    // moves on to port 2.
    ASSERT_TRUE(bed_.add_acm(2));
    bed_.hang_up_acm(1);
    ASSERT_TRUE(logged("Usb Cdc ScanGun /dev/ttyACM1 is plugout...\r\n"));
    ASSERT_TRUE(logged("Usb Cdc ScanGun /dev/ttyACM2 is plugin...\r\n"));
    ASSERT_TRUE(bed_.write_acm(2, "7\r\n", 3));
    EXPECT_EQ(scanned(3), (Bytes{'7', '\r', '\n'}));
    EXPECT_TRUE(daemon_->alive());
}

TEST_F(ScannerFaultDrills, TwoHundredClientReconnectsLeaveTheDaemonsDescriptorsFlat)
{
    start();
    const int first = connect_client();
    ASSERT_GT(first, 0);
    ASSERT_TRUE(logged("Create scanserver thread success...\r\n"));
    const int second = connect_client();  // replaces the first, which the daemon closes
    ASSERT_TRUE(second > 0 && logged("Usb scan unix client connected...\r\n", 2));
    close(first);
    const pid_t pid = daemon_->pid();
    usleep(500000);
    const int before = testharness::open_fds(pid);
    close(second);

    for (int i = 0; i < 200; ++i) {
        const int fd = connect_client();
        ASSERT_GT(fd, 0) << i;
        close(fd);
    }
    const int last = connect_client();
    ASSERT_TRUE(last > 0 && logged("Usb scan unix client connected...\r\n", 203));
    EXPECT_TRUE(eventually([&] { return testharness::open_fds(pid) == before; }, testharness::kServeBound))
        << testharness::open_fds(pid) << " descriptors, " << before << " before:\n"
        << testharness::fd_targets(pid);

    // The newest client is served: a plugged keyboard brings it the inventory.
    ASSERT_TRUE(bed_.add(4, emul::devices::full_keyboard()));
    Bytes head(12);
    ASSERT_EQ(unix_socket_read(last, head.data(), head.size(), 5000), 12);
    EXPECT_EQ(head, testsupport::words({0xAA77BBAA, UsbDevInfoGetFun, uint32_t{sizeof(UsbDevInfo_t)}}));
    close(last);
    EXPECT_TRUE(daemon_->alive());
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
    ASSERT_EQ(UsbGunDataTypeSet(eCdcData), 0);
    ASSERT_TRUE(logged("UsbGunDataTypeSetFun event comming...\r\n"));

    daemon_.reset();  // killed
    EXPECT_EQ(UsbGunDataTypeSet(eCdcData), -2);
    const long cpu_before = cpu_ms();
    sleep(1);
    // Waiting for a daemon is a few connection attempts, not a busy loop.
    EXPECT_LT(cpu_ms() - cpu_before, 250);
    EXPECT_EQ(UsbGunDataTypeSet(eCdcData), -2);

    start();
    EXPECT_TRUE(eventually([] { return UsbGunDataTypeSet(eKbdData) == 0; }, 10s));
    EXPECT_TRUE(logged("UsbGunDataTypeSetFun event comming...\r\n", 2));
}

}  // namespace
