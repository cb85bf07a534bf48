// The USB inventory: the kernel's listing parsed into a bounded list, looked up, copied and shown.
#include "common/usb_gun/usbinfo.h"

#include "common/usb_gun/usbinfo_internal.h"
#include "support/unit_common.h"

namespace {

const std::string kListing =
    listed_device(0x046d, 0xc31c, "USB Keyboard", "usb-musb-hdrc.1-1.1/input0", "sysrq kbd leds event1") +
    listed_device(1, 1, "AT Translated Set 2 keyboard", "isa0060/serio0/input0", "sysrq kbd event0") +
    listed_device(0x1eab, 0x22, "Scanner Device", "usb-0000:00:14.0-2/input0", "kbd event3") +
    // No event handler: it takes the next entry's number, and that entry is passed over.
    listed_device(2, 2, "Power Button", "usb-musb-hdrc.1-1.3/input0", "kbd") +
    listed_device(3, 3, "Hidden", "usb-musb-hdrc.1-1.4/input0", "kbd event7") +
    listed_device(0x1eab, 0x23, "ScannerX", "usb-musb-hdrc.1-1.2/input1", "kbd event12");

UsbDevInfo_t parse(const std::string& text)
{
    UsbDevInfo_t list{};
    usbinfo_parse(text.data(), text.size(), &list);
    return list;
}

std::vector<int> lookup(const char* name, int rc)
{
    KbScanSupportInfo_t out{};
    EXPECT_EQ(UsbDevSerachIndex(name, &out), rc) << name;
    return std::vector<int>(out.h_evt, out.h_evt + out.count);
}

TEST(UsbInventory, OnlyUsbDevicesAreListedBoundedFoundByNamePrefixCopiedUnderTheRootAndShown)
{
    usbdev_ctrl.usbinfo = parse(kListing);
    const UsbDevInfo_t& list = usbdev_ctrl.usbinfo;
    ASSERT_EQ(list.usbdev_total_count, 4);
    const UsbDev_Desc_t& kbd = list.usb_desc[0];
    EXPECT_EQ(std::tuple(kbd.vendor, kbd.product, kbd.event_index), std::tuple(0x046dU, 0xc31cU, 1));
    EXPECT_EQ(std::string(kbd.devname) + "|" + kbd.physname, "USB Keyboard|usb-musb-hdrc.1-1.1/input0");
    EXPECT_EQ(std::tuple(std::string(list.usb_desc[2].devname), list.usb_desc[2].event_index), std::tuple("Power Button", 7));
    EXPECT_EQ(lookup("Scanner", 0), (std::vector<int>{3, 12}));
    EXPECT_EQ(lookup("ScannerX", 0), (std::vector<int>{12}));
    EXPECT_EQ(lookup("Printer", -2), (std::vector<int>{}));

    std::string text, many;
    for (int i = 0; i < 40; ++i)
        text += listed_device(1, 2, std::string(300, 'n'), "usb-1/" + std::string(300, 'p'), "event" + std::to_string(i));
    const UsbDevInfo_t full = parse(text);
    ASSERT_EQ(full.usbdev_total_count, 32);
    EXPECT_EQ(std::string(full.usb_desc[31].devname), std::string(255, 'n'));
    EXPECT_EQ(std::string(full.usb_desc[31].physname).size(), 255U);
    // A listing cut inside an entry ends the parse there.
    EXPECT_EQ(parse(kListing.substr(0, kListing.find("Scanner Device") + 3)).usbdev_total_count, 1);
    for (int i = 0; i < 6; ++i)  // more matches than the answer holds
        many += listed_device(1, 1, "Scanner " + std::to_string(i), "usb-1/input0", "event" + std::to_string(i));
    usbdev_ctrl.usbinfo = parse(many);
    EXPECT_EQ(lookup("Scanner", 0), (std::vector<int>{0, 1, 2, 3}));

    testsupport::ScratchRoot root;
    ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
    std::filesystem::create_directories(root.at("/proc/bus/input"));
    testsupport::write_file(root.at("/proc/bus/input/devices"), kListing);
    UsbDevInfo_t got;
    ASSERT_TRUE(UsbDevGetInfo(&got) == 0 && got.usbdev_total_count == 4);
    EXPECT_EQ(testsupport::read_file(root.at("/tmp/usbinfo")), kListing);  // the copy stays
    UsbDevShowInfo(got);
    const std::string log = testsupport::read_file(root.at("/tmp/scan-server.txt"));
    for (const char* line : {"Show All 4 Usb devices Info.\r\n", "] [0] Vendor=46d Product=c31c event1 [",
                             "] Name:USB Keyboard\r\n"})
        EXPECT_EQ(testsupport::count_text(log, line), 1) << line;

    // Event nodes are counted by name and kind: only the link here.
    const std::string dev = root.at("/dev");
    std::filesystem::create_directories(dev + "/event9");
    std::filesystem::create_symlink("/dev/null", dev + "/event0");
    std::filesystem::create_symlink("/dev/null", dev + "/mouse0");
    testsupport::write_file(dev + "/event1", "");
    ASSERT_EQ(mkfifo((dev + "/event2").c_str(), 0600), 0);
    EXPECT_EQ(AddupEventTotal(dev.c_str()), 1);

    std::filesystem::remove_all(root.at("/tmp"));
    EXPECT_TRUE(UsbDevGetInfo(&got) == -1 && got.usbdev_total_count == 0);
}

}  // namespace
