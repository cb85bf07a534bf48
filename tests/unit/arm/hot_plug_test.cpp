// Classification of event nodes by their capability bits, and a scan pass's record of a node lent away.
#include "arm/hot_plug.h"

#include "arm/hot_plug_internal.h"
#include "sim/devices.h"
#include "support/unit_common.h"

namespace {

using emul::TestDevice;
namespace dev = emul::devices;

TestDevice changed(TestDevice d, const std::function<void(TestDevice&)>& change)
{
    change(d);
    return d;
}

// need_cali is written for touchscreens only; a line of nullptr is not looked for.
TEST(Classification, EveryKindOfDeviceAndThePrecedenceOfItsBits)
{
    const struct {
        TestDevice device;
        int kind;
        const char* line;
        int need_cali;
    } cases[] = {
        {dev::single_touch_screen(), USB_INPUT_TOUCHSCREEN, "Info:TOUCHSCREEN device type...\n", 1},
        {dev::multi_touch_screen(), USB_INPUT_TOUCHSCREEN, "Info:TOUCHSCREEN device type...\n", 0},
        {dev::full_keyboard(), USB_INPUT_KEYBOARD, "KEYBOARD device type...\n", -7},
        {dev::partial_keyboard(), USB_INPUT_OTHER, "KEY device type...\n", -7},
        {dev::abs_mouse(), USB_INPUT_MOUSE, "MOUSE device type...\n", -7},
        {dev::tablet(), USB_INPUT_OTHER, "TABLET device type...\n", -7},
        {dev::touchpad(), USB_INPUT_OTHER, "TOUCHPAD device type...\n", -7},
        {dev::joystick(), USB_INPUT_OTHER, "JOYSTICK device type...\n", -7},
        {dev::accelerometer(), USB_INPUT_OTHER, "ACCELEROMETER  device type...\n", -7},
        {dev::front_panel(), USB_INPUT_OTHER, "Found key 160 in high block\n", -7},
        // Relative axes win over ABS_X/ABS_Y with BTN_TOUCH and over a tablet.
        {dev::mouse_with_abs(), USB_INPUT_MOUSE, nullptr, -7},
        {changed(dev::tablet(), [](TestDevice& d) { d.ev.push_back(EV_REL), d.rel = {REL_X, REL_Y}, d.key.push_back(BTN_LEFT); }),
         USB_INPUT_MOUSE, nullptr, -7},
        // Keys 1..31 make a keyboard (KEY_RESERVED is not needed, key 31 is).
        {changed(dev::full_keyboard(), [](TestDevice& d) { std::erase(d.key, 31u); }), USB_INPUT_OTHER, nullptr, -7},
        {dev::misc_buttons(), -1, nullptr, -7},  // keys only above 255 and outside 352..703, no pointer
        // A touchscreen with some keys is reported by its key analysis.
        {changed(dev::single_touch_screen(), [](TestDevice& d) { d.key.push_back(KEY_POWER); }), USB_INPUT_OTHER, nullptr, -7},
    };
    for (const auto& c : cases) {
        testsupport::LogCapture log(LEVEL_INFO);
        evdev_bitmaps bits{};
        emul::fill_bits(c.device.ev, bits.ev.data(), bits.ev.size());
        emul::fill_bits(c.device.abs, bits.abs.data(), bits.abs.size());
        emul::fill_bits(c.device.key, bits.key.data(), bits.key.size());
        emul::fill_bits(c.device.rel, bits.rel.data(), bits.rel.size());
        int need_cali = -7;
        EXPECT_EQ(classify_event_device(bits, &need_cali), c.kind) << c.device.name;
        EXPECT_TRUE((c.line == nullptr || log.has(c.line)) && need_cali == c.need_cali) << c.device.name;
    }
    testsupport::LogCapture log;
    int need_cali = 0;
    EXPECT_EQ(Get_EventDeviceType("/nonexistent/event9", &need_cali), USB_INPUT_UNKNOW);
    EXPECT_TRUE(log.has("path not exist...\n"));
}

// Plugging and lending run end to end in the scanner tests; here a node unplugged while lent. Slot 3's
// node and sysfs files are plain files of a scratch directory.
TEST(ScanPass, ANodeUnpluggedWhileLentIsForgottenAndComesBackAsNew)
{
    testsupport::ScratchRoot root;
    ASSERT_EQ(root.load_port_conf(), 0);
    ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
    hotplug_fill_paths();
    EvtCtrl_t& slot = TactordCtrl.evtctrl[3];
    std::snprintf(slot.devnode, sizeof slot.devnode, "%s", root.at("/event3").c_str());
    std::snprintf(slot.get_port, sizeof slot.get_port, "%s", root.at("/phys3").c_str());
    std::snprintf(slot.get_name, sizeof slot.get_name, "%s", root.at("/name3").c_str());
    testsupport::write_file(root.at("/phys3"), "usb-musb-hdrc.1-1.2/input0\n");
    testsupport::write_file(root.at("/name3"), "Scanner\n");
    const auto plug = [&] { testsupport::write_file(root.at("/event3"), ""); };
    plug();
    hotplug_scan_pass();
    EXPECT_TRUE(slot.dev_flag == 1 && slot.evt_index == 3);
    EXPECT_STREQ(slot.syspath, "usb-musb-hdrc.1-1.2/input0\n");
    ASSERT_NE(get_input_info(2), nullptr);
    EXPECT_STREQ(get_input_info(2)->device, slot.devnode);
    ADEventToTactord(3);  // not lent: nothing to give back
    hotplug_scan_pass();  // no change, no second record
    EXPECT_TRUE(slot.bScanCtrl == 0 && get_input_info(2)->next.load() == nullptr);
    RMEventFromTactord(3);
    hotplug_scan_pass();
    EXPECT_TRUE(get_input_info(2) == nullptr && slot.bScanCtrl == 1);
    hotplug_scan_pass();
    EXPECT_EQ(root.count_in("/tmp/scan-server.txt", "Insert Scan event3...\r\n"), 1);
    unlink(root.at("/event3").c_str());
    hotplug_scan_pass();
    EXPECT_TRUE(slot.dev_flag == 0 && slot.bScanCtrl == 0);
    EXPECT_EQ(root.count_in("/tmp/scan-server.txt", "Remove Scan event3...\r\n"), 1);
    plug();
    hotplug_scan_pass();
    EXPECT_NE(get_input_info(2), nullptr);
}

}  // namespace
