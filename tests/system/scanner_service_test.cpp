// The scanner service: its readers and inventory watcher in this process against emulated devices; the service
// in the running daemon with this process as its client; a C program built against the installed client library.
#include <termios.h>

#include <future>
#include <mutex>

#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbcdc_scanner.h"
#include "common/usb_gun/usbgun_c_internal.h"
#include "common/usb_gun/usbgun_records.h"
#include "common/usb_gun/usbgun_s_internal.h"
#include "common/usb_gun/usbinfo_internal.h"
#include "common/usb_gun/usbkbd_scanner_internal.h"
#include "common/usb_gun/usblog.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "support/system_common.h"

namespace {

namespace dev = emul::devices;
using testsupport::Bytes;
using testsupport::eventually;

int on_chunk(uint8_t*, int) { return 0; }  // what a reader hands on is followed by the daemon tests
bool declared(int event)
{
    std::lock_guard<std::mutex> guard(usbkbd_ctrl.mutex_kbd);
    return std::ranges::any_of(usbkbd_ctrl.kbd, [&](const auto& slot) { return slot.bOn != 0 && slot.index == event; });
}

class Scanner : public ::testing::Test {
protected:
    Scanner() { std::filesystem::create_directories(root_.at("/proc/bus/input")); }
    bool logged(const std::string& line) { return testsupport::wait_for_file_text(root_.at(SCANNER_LOG_PATH), line); }
    int log_count(const std::string& text) { return testsupport::count_text(testsupport::read_file(root_.at(SCANNER_LOG_PATH)), text); }

    testsupport::ScratchRoot root_;
    emul::EvdevTestbed bed_;
};

// The readers in this process, logging as the service does.
class ScannerReaders : public Scanner {
protected:
    void SetUp() override { ASSERT_EQ(usblog_init_log(SCANNER_LOG_PATH), 0); }
};

TEST_F(ScannerReaders, WedgeScannerIsReadWhereTheEventNodesLieUntilItGoes)
{
    // With no event node directly in /dev, the node is looked for in /dev/input.
    ASSERT_TRUE(bed_.add(3, dev::wedge_scanner(), {.input_dir = true}));
    ASSERT_EQ(UsbKbdScanGun_Init({on_chunk, nullptr}), 0);
    UsbKbdScanGunSetEvtIndex(3, true);
    ASSERT_TRUE(logged("/dev/input/event3 starting...\r\n"));
    // Once /dev itself holds event nodes the reader looks there: event3 and its declaration are gone.
    ASSERT_TRUE(bed_.add(5, dev::wedge_scanner()));
    EXPECT_TRUE(eventually([] { return !declared(3); }, 5s));
    UsbKbdScanGunSetEvtIndex(5, true);
    ASSERT_TRUE(logged("/dev/event5 starting...\r\n"));
    bed_.remove(5);
    EXPECT_TRUE(eventually([] { return !declared(5); }, 5s));  // to be declared again when it comes back
}

// Its unplug, which removes the node, is drilled against the daemon.
TEST_F(ScannerReaders, CdcPortIsSetRaw)
{
    ASSERT_TRUE(bed_.add_acm(1));
    termios tio{};
    const auto port_attributes = [&](tcflag_t add) {
        const int fd = open("/dev/ttyACM1", O_RDWR | O_NOCTTY | O_NONBLOCK);
        ASSERT_TRUE(fd >= 0 && tcgetattr(fd, &tio) == 0);
        tio.c_iflag |= add;
        ASSERT_EQ(tcsetattr(fd, TCSANOW, &tio), 0);
        close(fd);
    };
    port_attributes(ICRNL | IXON | IXOFF);  // as a fresh tty comes: CR/LF translation and XON/XOFF on
    ASSERT_EQ(UsbCdcScanGun_init({on_chunk, nullptr}), 0);
    ASSERT_TRUE(logged("Usb Cdc ScanGun /dev/ttyACM1 is plugin...\r\n"));
    // As the reader set it: raw 8N1 without translation or flow control, output at 9600.
    port_attributes(0);
    EXPECT_EQ(tio.c_iflag & (IGNPAR | ICRNL | INLCR | IGNCR | ISTRIP | IXON | IXOFF), unsigned{IGNPAR});
    EXPECT_EQ(tio.c_oflag | tio.c_lflag, 0U);
    EXPECT_EQ(tio.c_cflag & (CSTOPB | CSIZE | CRTSCTS | CREAD | CLOCAL), CS8 | CREAD | CLOCAL);
    EXPECT_EQ(cfgetospeed(&tio), B9600);
}

std::atomic<int> lists{0};
int on_list(uint8_t* data, int len)
{
    EXPECT_EQ(len, static_cast<int>(sizeof(UsbDevInfo_t)));
    EXPECT_GT(reinterpret_cast<UsbDevInfo_t*>(data)->usbdev_total_count, 0);
    return ++lists, 0;
}

TEST_F(ScannerReaders, InventoryIsSentOncePerChangeOfTheEventNodes)
{
    const std::string scanner =
        testsupport::listed_device(0x1eab, 0x22, "Scanner Device", "usb-musb-hdrc.1-1.2/input0", "kbd event3");
    testsupport::write_file(root_.at("/proc/bus/input/devices"), scanner);
    ASSERT_TRUE(bed_.add(3, dev::wedge_scanner()));
    ASSERT_EQ(UsbDevInfoInit({on_list, nullptr}), 0);
    EXPECT_TRUE(eventually([] { return lists == 1; }, 5s));
    testsupport::write_file(root_.at("/proc/bus/input/devices"),
                            scanner + testsupport::listed_device(1, 2, "Keyboard", "usb-1/input0", "kbd event4"));
    ASSERT_TRUE(bed_.add(4, dev::full_keyboard()));
    EXPECT_TRUE(eventually([] { return lists == 2; }, 5s));
    usleep(2500000);  // no change since: nothing more is sent
    EXPECT_EQ(lists, 2);
    EXPECT_TRUE(logged("Usb dev has plugin or plugout event, current 2 devices\r\n"));
    std::lock_guard<std::mutex> guard(usbdev_ctrl.mutex_dev);  // the watcher runs on past this test
    usbdev_ctrl.cb = {};
}

int on_config(int) { return 0; }
class ScannerClientLibrary : public ScannerReaders {};

TEST_F(ScannerClientLibrary, CProgramBuiltAgainstTheInstalledLibraryTalksToTheService)
{
    const std::string stage = root_.at("/stage"), libdir = stage + "/" TACTORD_INSTALL_LIBDIR;
    const auto installed =
        testsupport::run_command(TACTORD_CMAKE " --install " TACTORD_BUILD_DIR " --prefix " + stage + " --component usbgun_c");
    ASSERT_EQ(installed.second, 0) << installed.first;
    const auto built = testsupport::run_command("export PKG_CONFIG_PATH=" + libdir + "/pkgconfig; " TACTORD_C_COMPILER
                                                " -std=c11 -pedantic -Wall -Wextra -Werror " TACTORD_C_SANITIZE " " TACTORD_SOURCE_DIR
                                                "/tests/system/usbgun_c_client.c $(pkg-config --cflags --libs usbgun_c) -o " +
                                                stage + "/client");
    ASSERT_EQ(built.second, 0) << built.first;
    std::thread init([] { EXPECT_EQ(UsbScanGunSrvInit({on_config, nullptr}), 0); });
    auto client = std::async(std::launch::async, testsupport::run_command, "LD_LIBRARY_PATH=" + libdir + " " + stage + "/client");
    init.join();

    ScanGunRouteInfo_t route{};
    eventually([&] { return UsbScanGunGetRouteInfo(&route), route.nFixedScreenID == eScreenOrvel; });
    ScanGunConfigName_t name{};
    int type = -1;
    UsbScanGunGetConfDesc(&name);
    UsbScanGunGetDataType(&type);
    EXPECT_EQ(std::vector<int>({route.nRouteMode, route.nFixedScreenID, name.index, type}),
              std::vector<int>({eModeFixed, eScreenOrvel, 1, eCdcData}));
    EXPECT_STREQ(name.name, "Test Scanner");
    UsbDevInfo_t list{};
    list.usbdev_total_count = 1;
    std::strcpy(list.usb_desc[0].devname, "Scanner Device");
    EXPECT_EQ(UsbDevInfoWriteData(reinterpret_cast<const uint8_t*>(&list), sizeof list), 0);
    EXPECT_EQ(UsbScanGunWriteData(0, eCdcData, reinterpret_cast<const uint8_t*>("0123456789\r"), 11), 47);
    EXPECT_EQ(client.get(),
              std::make_pair(std::string("list 1: 1 Scanner Device\nscan 55aa55aa slot 0 type 1: 0123456789\r\n"), 0));
}

// The daemon with four wedge scanners, on nodes 3 to 6.
class ScannerServiceInDaemon : public Scanner {
protected:
    void SetUp() override
    {
        std::string listing;
        for (int node = 3; node <= 6; ++node) {
            ASSERT_TRUE(bed_.add(node, dev::wedge_scanner()));
            listing += testsupport::listed_device(1, 2, "Test Scanner", "usb-1/input0", "kbd event" + std::to_string(node));
        }
        testsupport::write_file(root_.at("/proc/bus/input/devices"), listing);
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/w"));
        eventually([this] { return std::filesystem::exists(root_.at(SCANNER_SOCKET_PATH)); }, 5s);  // the service's thread makes it
    }
    // The daemon itself reads a key stroke (one write) on node: it reaches the main screen's client. A stroke played
    // before the node is on the daemon's monitor list (again) is lost: up to tries strokes.
    bool daemon_reads(int node, int tries = 1)
    {
        using emul::ev;
        if (!display_ && !(display_ = std::make_unique<testharness::DisplayClient>(root_.path()))->register_for(MAIN_SCREEN))
            return false;
        const std::vector<std::tuple<int, int, int>> stroke = {{EV_KEY, KEY_1, 1}, {EV_KEY, KEY_1, 0}, {EV_SYN, SYN_REPORT, 0}};
        for (int i = 0; i < tries; ++i)
            if (bed_.play(node, {ev(EV_KEY, KEY_1, 1), ev(EV_KEY, KEY_1, 0), ev(EV_SYN, SYN_REPORT, 0)}) &&
                testharness::receive(*display_, 3, 1500ms) == stroke)
                return true;
        return false;
    }

    const std::string conf_ = testsupport::write_port_conf(root_.at("/w"));
    std::unique_ptr<emul::DaemonProcess> daemon_;
    std::unique_ptr<testharness::DisplayClient> display_;
};

// Then garbage on the client's connection stops the service's configuration thread only: the name record
// the client sends next is never taken, and the daemon serves on.
TEST_F(ScannerServiceInDaemon, ScansFromLentWedgeScannersReachTheClientUntilGivenBackAndGarbageStopsOnlyTheConfiguration)
{
    ASSERT_TRUE(daemon_reads(3, 5));
    ASSERT_EQ(UsbGunInit({}), 0);
    ASSERT_TRUE(logged("Create scanserver thread success...\r\n") && logged("Show All 4 Usb devices Info.\r\n"));
    ASSERT_EQ(UsbGunConfigSet("Test Scanner", 1), 0);
    ASSERT_TRUE(logged("Set event6 as  ScanGun device success...\r\n") && logged(" starting...\r\n"));
    // The reader serves the first declared slot its cursor reaches.
    const std::string log = testsupport::read_file(root_.at(SCANNER_LOG_PATH));
    const int node = log[log.find(" starting...") - 1] - '0';
    ASSERT_TRUE(logged("Insert Scan event" + std::to_string(node) + "...\r\n"));
    EXPECT_FALSE(daemon_reads(node));  // taken from the daemon: the stroke goes to the focused screen's slot
    uint8_t scan[512];
    int n = 0;
    ASSERT_TRUE(eventually([&] { return n > 24 || (n = UsbGunRead(scan, sizeof scan)) > 24; }));
    // Slot 0, wedge data: one chunk of the daemon's native records (16 bytes each on the target).
    EXPECT_EQ(std::tuple(scan[4], scan[8], n - 24), std::tuple(0, 0, 3 * int(bed_.record_size())));
    EXPECT_EQ(bed_.decode(scan + 24, n - 24).at(0).code, KEY_1);

    ASSERT_EQ(UsbGunConfigSet("Test Scanner", 0), 0);
    ASSERT_TRUE(logged("Set event6 as NOT ScanGun device success...\r\n"));
    EXPECT_TRUE(daemon_reads(node, 5));

    const int names = log_count("UsbGunNameSetFun event comming");
    const Bytes garbage(16, 7);
    ASSERT_EQ(unix_socket_write(usbgun_client.unx_fd, garbage.data(), garbage.size()), 16);
    usleep(300000);
    ASSERT_EQ(UsbGunConfigSet("Test Scanner", 1), 0);
    usleep(300000);  // a serving thread takes a record within 105 ms
    EXPECT_TRUE(daemon_reads(node, 5));
    EXPECT_EQ(log_count("UsbGunNameSetFun event comming"), names);
}

}  // namespace
