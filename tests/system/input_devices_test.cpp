// The real daemon with evdev devices emulated by umockdev: classification,
// seats, hot-plug and reading, end to end.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <filesystem>
#include <memory>
#include <string>

#include "harness/daemon_process.h"
#include "harness/evdev_testbed.h"
#include "support/devices.h"
#include "support/scratch_root.h"

namespace {

using testharness::DaemonProcess;
using testharness::ev;
using testharness::EvdevTestbed;
using testharness::NodeOptions;
namespace dev = testsupport::devices;

const char* const kPortConf =
    "StartSection \"Terminal\"\n"
    "    Screen 0\n"
    "    InputDevice 5\n"
    "    InputDevice 1\n"
    "EndSection\n"
    "StartSection \"Terminal\"\n"
    "    Screen 1\n"
    "    InputDevice 2\n"
    "EndSection\n"
    "StartSection \"Input\"\n"
    "    usb-musb-hdrc.1-1.1 1\n"
    "    usb-musb-hdrc.1-1.2 2\n"
    "    usb-musb-hdrc.0-1 5\n"
    "EndSection\n";

class DaemonWithDevices : public ::testing::Test {
protected:
    void SetUp() override
    {
        workdir_ = root_.at("/work");
        std::filesystem::create_directories(workdir_);
        testsupport::write_file(workdir_ + "/port.conf", kPortConf);
    }

    void start()
    {
        daemon_ = std::make_unique<DaemonProcess>(workdir_);
        ASSERT_TRUE(daemon_->started());
        ASSERT_TRUE(daemon_->wait_for("path:usb-musb-hdrc.0-1----seat:5"));
    }

    // The trace line of one event read from a node.
    static std::string trace(int node, unsigned type, unsigned code, int value)
    {
        return "event /dev/event" + std::to_string(node) + ": type " + std::to_string(type) + " code " +
               std::to_string(code) + " value " + std::to_string(value) + "\n";
    }

    testsupport::ScratchRoot root_;
    EvdevTestbed bed_;
    std::string workdir_;
    std::unique_ptr<DaemonProcess> daemon_;
};

TEST_F(DaemonWithDevices, PluggedDevicesAreClassifiedThroughTheirCapabilityIoctls)
{
    start();
    bed_.add(0, dev::single_touch_screen().on("board-tsc/input0"));
    bed_.add(1, dev::multi_touch_screen().on("board-mt/input0"));
    bed_.add(2, dev::full_keyboard().on("board-kbd/input0"));
    bed_.add(3, dev::mouse_with_abs().on("board-mouse/input0"));
    bed_.add(4, dev::tablet().on("board-pen/input0"));
    bed_.add(6, dev::front_panel().on("board-keys/input0"));

    EXPECT_TRUE(daemon_->wait_for("/dev/event0 is touchscreen...\n"));
    EXPECT_TRUE(daemon_->wait_for("/dev/event1 is touchscreen...\n"));
    EXPECT_TRUE(daemon_->wait_for("/dev/event2 is keyboard...\n"));
    EXPECT_TRUE(daemon_->wait_for("/dev/event3 is mouse...\n"));
    EXPECT_TRUE(daemon_->wait_for("TABLET device type...\n"));
    EXPECT_TRUE(daemon_->wait_for("Found key 160 in high block\n"));
    // The tablet and the panel are reported all the same, unidentified.
    EXPECT_TRUE(daemon_->wait_for("non usb input,path:board-pen/input0"));
    EXPECT_TRUE(daemon_->wait_for("non usb input,path:board-keys/input0"));
    EXPECT_EQ(daemon_->count("This is not a USB device or type is not identified\n"), 2);
}

TEST_F(DaemonWithDevices, MainTouchscreenOnSeatFiveIsRegisteredAndRead)
{
    start();
    bed_.add(3, dev::multi_touch_screen());
    ASSERT_TRUE(daemon_->wait_for("usb input,seat:5\n"));
    ASSERT_TRUE(daemon_->wait_for("add screen id:0, seat 5 to touchscreen...\n"));

    ASSERT_TRUE(bed_.play(3, {ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, 100), ev(EV_ABS, ABS_Y, 200),
                              ev(EV_SYN, SYN_REPORT, 0)}));
    ASSERT_TRUE(daemon_->wait_for(trace(3, EV_SYN, SYN_REPORT, 0)));
    const std::string out = daemon_->output();
    const auto key = out.find(trace(3, EV_KEY, BTN_TOUCH, 1));
    const auto x = out.find(trace(3, EV_ABS, ABS_X, 100));
    const auto y = out.find(trace(3, EV_ABS, ABS_Y, 200));
    const auto syn = out.find(trace(3, EV_SYN, SYN_REPORT, 0));
    ASSERT_NE(key, std::string::npos);
    EXPECT_LT(key, x);
    EXPECT_LT(x, y);
    EXPECT_LT(y, syn);
}

TEST_F(DaemonWithDevices, VanishedDeviceIsRemovedAndItsSeatCanBeUsedAgain)
{
    start();
    bed_.add(3, dev::single_touch_screen());
    ASSERT_TRUE(daemon_->wait_for("add screen id:0, seat 5 to touchscreen...\n"));
    bed_.remove(3);
    ASSERT_TRUE(daemon_->wait_for("Remove device:touchscreen_main\n"));
    ASSERT_TRUE(daemon_->wait_for("/dev/event3 fail to connect!\n"));

    const std::size_t since = daemon_->mark();
    ASSERT_TRUE(bed_.add(6, dev::single_touch_screen()));
    ASSERT_TRUE(daemon_->wait_for("usb input,seat:5\n", since));
    ASSERT_TRUE(bed_.play(6, {ev(EV_ABS, ABS_X, 7)}));
    EXPECT_TRUE(daemon_->wait_for(trace(6, EV_ABS, ABS_X, 7), since));
}

TEST_F(DaemonWithDevices, KeyboardGetsItsCapsLockLedClearedWhenRegistered)
{
    start();
    bed_.add(4, dev::full_keyboard());
    ASSERT_TRUE(daemon_->wait_for("usb input,seat:1\n"));
    const auto written = bed_.written(4, std::chrono::seconds(10));
    ASSERT_FALSE(written.empty()) << daemon_->output();
    EXPECT_EQ(written[0].type, EV_LED);
    EXPECT_EQ(written[0].code, LED_CAPSL);
    EXPECT_EQ(written[0].value, 0);
}

TEST_F(DaemonWithDevices, CompositeDeviceOnSeatOneGoesAsAWhole)
{
    start();
    bed_.add(1, dev::full_keyboard().on("usb-musb-hdrc.1-1.1/input0"));
    ASSERT_TRUE(daemon_->wait_for("/dev/event1 is keyboard...\n"));
    bed_.add(2, dev::mouse_with_abs().on("usb-musb-hdrc.1-1.1/input1"));
    ASSERT_TRUE(daemon_->wait_for("/dev/event2 is mouse...\n"));
    ASSERT_TRUE(bed_.play(2, {ev(EV_REL, REL_X, 3)}));
    ASSERT_TRUE(daemon_->wait_for(trace(2, EV_REL, REL_X, 3)));

    bed_.remove(1);
    ASSERT_TRUE(daemon_->wait_for("Remove device:touchscreen_sub\n"));
    bed_.remove(2);
    ASSERT_TRUE(daemon_->wait_for("/dev/event2 fail to connect!\n"));
    // The mouse went with the keyboard: its own removal finds nothing left.
    EXPECT_EQ(daemon_->count("Remove device:"), 1);
}

TEST_F(DaemonWithDevices, ReadThatIsNotAWholeRecordIsDroppedAndReadingGoesOn)
{
    start();
    bed_.add(5, dev::multi_touch_screen());
    ASSERT_TRUE(daemon_->wait_for("usb input,seat:5\n"));
    const char torn[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    ASSERT_TRUE(bed_.write_raw(5, torn, sizeof torn));
    ASSERT_TRUE(daemon_->wait_for("Read error: "));
    ASSERT_TRUE(bed_.play(5, {ev(EV_ABS, ABS_X, 55)}));
    EXPECT_TRUE(daemon_->wait_for(trace(5, EV_ABS, ABS_X, 55)));
}

TEST_F(DaemonWithDevices, BadNodesAreLoggedWithoutDisturbingOthers)
{
    start();
    bed_.add(1, dev::full_keyboard().on("board-kbd/input0"), NodeOptions{.fail_ioctls = true});
    ASSERT_TRUE(daemon_->wait_for("This is not a USB device or type is not identified\n"));
    bed_.add(2, dev::single_touch_screen(), NodeOptions{.with_phys = false, .with_name = false});
    ASSERT_TRUE(daemon_->wait_for("open /sys/class/input/event2/device/phys error! \n"));
    ASSERT_TRUE(daemon_->wait_for("/dev/event2 is touchscreen...\n"));

    // A node that vanishes while events are pending.
    bed_.add(3, dev::multi_touch_screen());
    ASSERT_TRUE(daemon_->wait_for("/dev/event3 is touchscreen...\n"));
    bed_.play(3, {ev(EV_ABS, ABS_X, 1), ev(EV_SYN, SYN_REPORT, 0)});
    bed_.remove(3);
    ASSERT_TRUE(daemon_->wait_for("/dev/event3 fail to connect!\n")) << daemon_->output();

    bed_.add(4, dev::multi_touch_screen().on("usb-musb-hdrc.1-1.2/input0"));
    ASSERT_TRUE(daemon_->wait_for("usb input,seat:2\n"));
    ASSERT_TRUE(bed_.play(4, {ev(EV_ABS, ABS_Y, 9)}));
    EXPECT_TRUE(daemon_->wait_for(trace(4, EV_ABS, ABS_Y, 9)));
    EXPECT_TRUE(daemon_->alive());
}

}  // namespace
