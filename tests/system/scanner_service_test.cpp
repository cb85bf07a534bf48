// The scanner service in the running daemon, this test its client through the client library (and a raw
// socket for garbage); wedge scanners on nodes 3 to 7, the last one named apart.
#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <filesystem>
#include <memory>

#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "harness/display_client.h"
#include "sim/daemon_process.h"
#include "sim/devices.h"
#include "sim/evdev_testbed.h"
#include "support/remote_link.h"
#include "support/scanner.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testsupport::Bytes;

class ScannerServiceInDaemon : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string listing;
        for (int node = 3; node <= 7; ++node) {
            ASSERT_TRUE(bed_.add(node, emul::devices::wedge_scanner()));
            listing += testsupport::listed_device(1, 2, node < 7 ? "Test Scanner" : "Last Scanner", "usb-1/input0",
                                                  "kbd event" + std::to_string(node));
        }
        std::filesystem::create_directories(root_.at("/proc/bus/input"));
        testsupport::write_file(root_.at("/proc/bus/input/devices"), listing);
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/w"));
        // Made on the service's own thread.
        testsupport::eventually([this] { return std::filesystem::exists(root_.at(SCANNER_SOCKET_PATH)); }, 5s);
    }
    bool logged(const std::string& line) { return testsupport::wait_for_file_text(root_.at(SCANNER_LOG_PATH), line); }
    // The daemon's own input handling reads a key stroke (three records in one write) on node: the press
    // reaches the focused main screen's client. A stroke played before the node is on the daemon's monitor
    // list (again) is not seen, so it is played up to tries times.
    bool daemon_reads(int node, int tries = 1)
    {
        using emul::ev;
        if (!display_) {
            display_ = std::make_unique<testharness::DisplayClient>(root_.path());
            if (!display_->register_for(MAIN_SCREEN))
                return false;
        }
        for (int i = 0; i < tries; ++i) {
            if (!bed_.play(node, {ev(EV_KEY, KEY_1, 1), ev(EV_KEY, KEY_1, 0), ev(EV_SYN, SYN_REPORT, 0)}))
                return false;
            while (const auto got = display_->read_event(1500ms))  // private records first, after registering
                if (got->type == EV_KEY && got->code == KEY_1 && got->value == 1)
                    return true;
        }
        return false;
    }
    // The next scan the client library holds: slot, data type, bytes; slot -1 when none came.
    static std::tuple<int, int, Bytes> next_scan(int tries = 300)
    {
        uint8_t buf[512];
        int n = 0;
        while (tries-- > 0 && (n = UsbGunRead(buf, sizeof buf)) <= 0)
            usleep(10000);
        return n < 24 ? std::tuple(-1, -1, Bytes{}) : std::tuple(int(buf[4]), int(buf[8]), Bytes(buf + 24, buf + n));
    }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/w"));
    emul::EvdevTestbed bed_;
    std::unique_ptr<emul::DaemonProcess> daemon_;
    std::unique_ptr<testharness::DisplayClient> display_;
};

TEST_F(ScannerServiceInDaemon, ScansFromLentWedgeScannersAndCdcPortsReachTheClient)
{
    ASSERT_TRUE(daemon_reads(3, 5));
    ASSERT_EQ(UsbGunInit({}), 0);
    ASSERT_TRUE(logged("Create scanserver thread success...\r\n") && logged("Show All 5 Usb devices Info.\r\n"));
    ASSERT_EQ(UsbGunConfigSet("Test Scanner", 1), 0);  // four of them
    ASSERT_EQ(UsbGunConfigSet("Last Scanner", 1), 0);  // a fifth: logged, not done
    ASSERT_TRUE(logged("Set event7 as  ScanGun device success...\r\n") && logged(" starting...\r\n"));
    // The reader serves the first declared slot its cursor reaches.
    const std::string log = testsupport::read_file(root_.at(SCANNER_LOG_PATH));
    const int node = log[log.find(" starting...") - 1] - '0';
    ASSERT_TRUE(logged("Insert Scan event" + std::to_string(node) + "...\r\n"));
    EXPECT_FALSE(daemon_reads(node));  // taken from the daemon: the stroke goes to the focused screen's slot
    const auto [slot, type, data] = next_scan();
    // One chunk of the daemon's native records (16 bytes each on the target).
    EXPECT_EQ(std::tuple(slot, type, data.size()), std::tuple(0, 0, 3 * bed_.record_size()));
    EXPECT_EQ(bed_.decode(data.data(), data.size()).at(0).code, KEY_1);

    ASSERT_EQ(UsbGunSetRouteInfo(eModeFixed, eScreenSecondray), 0);
    ASSERT_TRUE(logged("UsbGunRouteInfoSetFun event comming...\r\n"));
    usleep(300000);  // the applier takes the flags every 100 ms
    ASSERT_TRUE(bed_.add_acm(0) && logged("Usb Cdc ScanGun /dev/ttyACM0 is plugin...\r\n"));
    ASSERT_TRUE(bed_.write_acm(0, "42\r", 3));
    EXPECT_EQ(next_scan(), std::tuple(1, 1, Bytes{'4', '2', '\r'}));

    // Given back, the four free their slots: the fifth still never starts.
    ASSERT_EQ(UsbGunConfigSet("Test Scanner", 0), 0);
    ASSERT_TRUE(logged("Set event6 as NOT ScanGun device success...\r\n"));
    EXPECT_TRUE(daemon_reads(node, 5));
    ASSERT_TRUE(bed_.play(7, {emul::ev(EV_KEY, KEY_2, 1)}));
    EXPECT_EQ(std::get<0>(next_scan(150)), -1);
    EXPECT_EQ(testsupport::count_text(testsupport::read_file(root_.at(SCANNER_LOG_PATH)), "event7 starting"), 0);
}

TEST_F(ScannerServiceInDaemon, GarbageStopsTheConfigurationThreadOnly)
{
    int client = -1;  // bound a moment before it listens
    ASSERT_TRUE(testsupport::eventually([&] { return client > 0 || (client = unix_client_open(SCANNER_SOCKET_PATH)) > 0; }) &&
                logged("Create scanserver thread success...\r\n"));
    const Bytes garbage(16, 7), name = testsupport::unx_record(UsbGunNameSetFun, testsupport::name_payload(1, "Test"));
    ASSERT_EQ(unix_socket_write(client, garbage.data(), garbage.size()), 16);
    usleep(300000);
    ASSERT_EQ(unix_socket_write(client, name.data(), name.size()), ssize_t(name.size()));
    usleep(300000);  // a serving thread takes a record within 105 ms
    testharness::DisplayClient display(root_.path());
    ASSERT_TRUE(display.send(testharness::make_msg(TYPE_MODE_GET)));
    EXPECT_TRUE(display.read_reply().has_value());
    EXPECT_TRUE(daemon_reads(3, 5));  // the name record was never taken: still the daemon's
    EXPECT_EQ(testsupport::count_text(testsupport::read_file(root_.at(SCANNER_LOG_PATH)), "event comming"), 0);
    close(client);
}

}  // namespace
