// The scanner readers and the inventory watcher on their own threads,
// against wedge scanners, CDC ports and event nodes of the umockdev testbed.
#include <gtest/gtest.h>
#include <termios.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <string>

#include "common/usb_gun/usbcdc_scanner.h"
#include "common/usb_gun/usbinfo.h"
#include "common/usb_gun/usbinfo_internal.h"
#include "common/usb_gun/usbkbd_scanner.h"
#include "common/usb_gun/usbkbd_scanner_internal.h"
#include "common/usb_gun/usblog.h"
#include "sim/evdev_testbed.h"
#include "sim/devices.h"
#include "support/remote_link.h"
#include "support/scanner.h"
#include "support/scratch_root.h"

namespace {

namespace dev = emul::devices;
using namespace std::chrono_literals;
using testsupport::eventually;

// What the readers hand on is followed to the client by the scanner service's tests.
int on_chunk(uint8_t*, int) { return 0; }

class ScannerReaders : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
        std::filesystem::create_directories(root_.at("/proc/bus/input"));
    }
    bool logged(const std::string& line) { return testsupport::wait_for_file_text(root_.at("/tmp/scan-server.txt"), line); }
    static bool declared(int event)
    {
        std::lock_guard<std::mutex> guard(usbkbd_ctrl.mutex_kbd);
        for (const auto& slot : usbkbd_ctrl.kbd)
            if (slot.bOn != 0 && slot.index == event)
                return true;
        return false;
    }

    testsupport::ScratchRoot root_;
    emul::EvdevTestbed bed_;
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
    // The port comes as a fresh tty would: CR/LF translation and XON/XOFF on.
    termios tio{};
    const auto port_attributes = [&](tcflag_t add) {
        const int fd = open("/dev/ttyACM1", O_RDWR | O_NOCTTY | O_NONBLOCK);
        ASSERT_TRUE(fd >= 0 && tcgetattr(fd, &tio) == 0);
        tio.c_iflag |= add;
        ASSERT_EQ(tcsetattr(fd, TCSANOW, &tio), 0);
        close(fd);
    };
    port_attributes(ICRNL | IXON | IXOFF);
    ASSERT_EQ(UsbCdcScanGun_init({on_chunk, nullptr}), 0);
    ASSERT_TRUE(logged("Usb Cdc ScanGun /dev/ttyACM1 is plugin...\r\n"));
    // As the reader set it: raw 8N1 without translation or flow control, output at 9600.
    port_attributes(0);
    EXPECT_EQ(tio.c_iflag & (IGNPAR | ICRNL | INLCR | IGNCR | ISTRIP | IXON | IXOFF), unsigned{IGNPAR});
    EXPECT_EQ(tio.c_oflag, 0U);
    EXPECT_EQ(tio.c_lflag, 0U);
    EXPECT_EQ(tio.c_cflag & (CSTOPB | CSIZE | CRTSCTS | CREAD | CLOCAL), CS8 | CREAD | CLOCAL);
    EXPECT_EQ(cfgetospeed(&tio), B9600);
}

std::atomic<int> lists{0};
int on_list(uint8_t* data, int len)
{
    EXPECT_EQ(len, static_cast<int>(sizeof(UsbDevInfo_t)));
    EXPECT_GT(reinterpret_cast<UsbDevInfo_t*>(data)->usbdev_total_count, 0);
    ++lists;
    return 0;
}

TEST_F(ScannerReaders, InventoryIsSentOncePerChangeOfTheEventNodes)
{
    const std::string scanner = testsupport::listed_device(0x1eab, 0x22, "Scanner Device",
                                                           "usb-musb-hdrc.1-1.2/input0", "kbd event3");
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
    // The watcher runs on while the process ends: it must not report into a finished test.
    std::lock_guard<std::mutex> guard(usbdev_ctrl.mutex_dev);
    usbdev_ctrl.cb = {};
}

}  // namespace
