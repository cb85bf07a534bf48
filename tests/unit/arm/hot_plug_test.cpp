#include "arm/hot_plug.h"

#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "arm/hot_plug_internal.h"
#include "common/inputdevice_manager.h"
#include "common/log.h"
#include "common/multi_config.h"
#include "common/usb_gun/usblog.h"
#include "sim/devices.h"
#include "support/log_capture.h"
#include "support/scratch_root.h"

namespace {

using emul::TestDevice;
namespace dev = emul::devices;

int classify(const TestDevice& d, int* need_cali)
{
    evdev_bitmaps bits{};
    emul::fill_bits(d.ev, bits.ev.data(), bits.ev.size());
    emul::fill_bits(d.abs, bits.abs.data(), bits.abs.size());
    emul::fill_bits(d.key, bits.key.data(), bits.key.size());
    emul::fill_bits(d.rel, bits.rel.data(), bits.rel.size());
    return classify_event_device(bits, need_cali);
}

TEST(Classification, EveryKindOfDevice)
{
    const struct {
        const TestDevice& device;
        int kind;
        const char* line;
        int need_cali;  // written only for touchscreens
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
    };
    for (const auto& c : cases) {
        testsupport::LogCapture log(LEVEL_INFO);
        int need_cali = -7;
        EXPECT_EQ(classify(c.device, &need_cali), c.kind) << c.device.name;
        EXPECT_TRUE(log.has(c.line) && need_cali == c.need_cali) << c.device.name;
    }
}

TEST(Classification, PrecedenceRulesAndMissingNode)
{
    int need_cali = 0;
    // A relative mouse with ABS_X/ABS_Y and BTN_TOUCH is no touchscreen: calibration untouched.
    EXPECT_TRUE(classify(dev::mouse_with_abs(), &need_cali) == USB_INPUT_MOUSE && need_cali == 0);
    // Relative axes win over a tablet result too.
    TestDevice pen_mouse = dev::tablet();
    pen_mouse.ev.push_back(EV_REL);
    pen_mouse.rel = {REL_X, REL_Y};
    pen_mouse.key.push_back(BTN_LEFT);
    EXPECT_EQ(classify(pen_mouse, &need_cali), USB_INPUT_MOUSE);
    // Keys 1..31 make a keyboard; KEY_RESERVED is not needed, key 31 is.
    TestDevice keys = dev::full_keyboard();
    EXPECT_EQ(classify(keys, &need_cali), USB_INPUT_KEYBOARD);
    std::erase(keys.key, 31u);
    EXPECT_EQ(classify(keys, &need_cali), USB_INPUT_OTHER);
    // Keys only above 255 and outside 352..703, no pointer: nothing.
    EXPECT_EQ(classify(dev::misc_buttons(), &need_cali), -1);
    testsupport::LogCapture log;
    EXPECT_EQ(Get_EventDeviceType("/nonexistent/event9", &need_cali), USB_INPUT_UNKNOW);  // no node
    EXPECT_TRUE(log.has("path not exist...\n"));
    // A touchscreen with some keys is still reported by its key analysis.
    TestDevice ts_keys = dev::single_touch_screen();
    ts_keys.key.push_back(KEY_POWER);
    EXPECT_EQ(classify(ts_keys, &need_cali), USB_INPUT_OTHER);
}

// Scan passes over slot 3, its node and sysfs files plain files of a scratch directory.
class ScanPass : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(config_init(testsupport::write_port_conf(root_.path()).c_str()), 0);
        ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
        hotplug_fill_paths();
        EvtCtrl_t& s = TactordCtrl.evtctrl[3];
        std::snprintf(s.devnode, sizeof s.devnode, "%s", root_.at("/event3").c_str());
        std::snprintf(s.get_port, sizeof s.get_port, "%s", root_.at("/phys3").c_str());
        std::snprintf(s.get_name, sizeof s.get_name, "%s", root_.at("/name3").c_str());
        testsupport::write_file(root_.at("/phys3"), "usb-musb-hdrc.1-1.2/input0\n");
        testsupport::write_file(root_.at("/name3"), "Scanner\n");
    }
    void plug() { testsupport::write_file(root_.at("/event3"), ""); }
    void unplug() { unlink(root_.at("/event3").c_str()); }
    int scan_log_count(const std::string& what) const
    {
        return testsupport::count_text(testsupport::read_file(root_.at("/tmp/scan-server.txt")), what);
    }
    testsupport::ScratchRoot root_;
    const EvtCtrl_t& slot_ = TactordCtrl.evtctrl[3];
};

// Plugging and lending are the system tests'; here a pass's record and a node unplugged while lent.
TEST_F(ScanPass, ANodeUnpluggedWhileLentIsForgottenAndComesBackAsNew)
{
    plug();
    hotplug_scan_pass();
    EXPECT_TRUE(slot_.dev_flag == 1 && slot_.evt_index == 3);
    EXPECT_STREQ(slot_.syspath, "usb-musb-hdrc.1-1.2/input0\n");
    ASSERT_NE(get_input_info(2), nullptr);
    EXPECT_STREQ(get_input_info(2)->device, slot_.devnode);
    ADEventToTactord(3);  // not lent: nothing to give back
    hotplug_scan_pass();  // no change, no second record
    EXPECT_TRUE(slot_.bScanCtrl == 0 && get_input_info(2)->next.load() == nullptr);
    RMEventFromTactord(3);
    hotplug_scan_pass();
    EXPECT_TRUE(get_input_info(2) == nullptr && slot_.bScanCtrl == 1);
    hotplug_scan_pass();
    EXPECT_EQ(scan_log_count("Insert Scan event3...\r\n"), 1);
    unplug();
    hotplug_scan_pass();
    EXPECT_TRUE(slot_.dev_flag == 0 && slot_.bScanCtrl == 0);
    EXPECT_EQ(scan_log_count("Remove Scan event3...\r\n"), 1);
    plug();
    hotplug_scan_pass();
    EXPECT_NE(get_input_info(2), nullptr);
}

}  // namespace
