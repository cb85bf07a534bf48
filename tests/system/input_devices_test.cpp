// The real daemon with evdev devices emulated by umockdev: classification,
// seats, hot-plug and reading, end to end.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <string>

#include "sim/daemon_process.h"
#include "harness/display_client.h"
#include "harness/drill.h"
#include "sim/evdev_testbed.h"
#include "sim/devices.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using emul::ev;
using Evs = std::vector<std::tuple<int, int, int>>;
namespace dev = emul::devices;

class DaemonWithDevices : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"));
        ASSERT_TRUE(daemon_->wait_for("path:usb-musb-hdrc.0-1----seat:5"));
    }
    bool wait_for(const std::string& text, std::size_t since = 0) { return daemon_->wait_for(text, since); }
    // Plays events into node; the next n device records of the main screen's client (registered on first use).
    Evs play_and_receive(int node, const std::vector<tactord::input_event>& events, std::size_t n)
    {
        if (!client_) {
            client_ = std::make_unique<testharness::DisplayClient>(root_.path());
            if (!client_->register_for(0) || !testharness::round_trip(*client_, 0))
                return {};
        }
        return bed_.play(node, events) ? testharness::receive(*client_, n) : Evs{};
    }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/work"));
    emul::EvdevTestbed bed_;
    std::unique_ptr<emul::DaemonProcess> daemon_;
    std::unique_ptr<testharness::DisplayClient> client_;
};

// Every kind by its bits: the classification unit test; touchscreens,
// keyboards and mice through the ioctls: the cases below.
TEST_F(DaemonWithDevices, AMouseWithAbsoluteAxesIsAMouseAndOtherKindsAreReportedUnidentified)
{
    bed_.add(3, dev::mouse_with_abs().on("board-mouse/input0"));
    bed_.add(4, dev::tablet().on("board-pen/input0"));
    bed_.add(6, dev::front_panel().on("board-keys/input0"));
    for (const char* line : {"/dev/event3 is mouse...\n", "non usb input,path:board-pen/input0",
                             "non usb input,path:board-keys/input0"})
        EXPECT_TRUE(wait_for(line)) << line;
    EXPECT_EQ(daemon_->count("This is not a USB device or type is not identified\n"), 2);
}

TEST_F(DaemonWithDevices, MainTouchscreenIsReadInOrderAndItsSeatIsFreedWhenItVanishes)
{
    bed_.add(3, dev::multi_touch_screen());
    ASSERT_TRUE(wait_for("usb input,seat:5\n") && wait_for("add screen id:0, seat 5 to touchscreen...\n"));
    // In order, scaled from 0..4095 to the 1920 x 1080 panel.
    EXPECT_EQ(play_and_receive(3, {ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, 100), ev(EV_ABS, ABS_Y, 200),
                                   ev(EV_SYN, SYN_REPORT, 0)}, 4),
              (Evs{{EV_KEY, BTN_MOUSE, 1}, {EV_ABS, ABS_X, 46}, {EV_ABS, ABS_Y, 52}, {EV_SYN, 0, 0}}));

    bed_.remove(3);
    ASSERT_TRUE(wait_for("Remove device:touchscreen_main\n") && wait_for("/dev/event3 fail to connect!\n"));
    const std::size_t since = daemon_->mark();
    ASSERT_TRUE(bed_.add(6, dev::single_touch_screen()));
    ASSERT_TRUE(wait_for("add screen id:0, seat 5 to touchscreen...\n", since));
    // Its raw report goes through the default calibration.
    EXPECT_EQ(play_and_receive(6, {ev(EV_ABS, ABS_X, 1000), ev(EV_ABS, ABS_Y, 1000), ev(EV_SYN, SYN_REPORT, 0)}, 3),
              (Evs{{EV_ABS, ABS_X, 130}, {EV_ABS, ABS_Y, 535}, {EV_SYN, 0, 0}}));
}

TEST_F(DaemonWithDevices, CompositeDeviceOnSeatOneGoesAsAWholeAndItsKeyboardLedIsCleared)
{
    bed_.add(1, dev::full_keyboard().on("usb-musb-hdrc.1-1.1/input0"));
    ASSERT_TRUE(wait_for("/dev/event1 is keyboard...\n") && wait_for("usb input,seat:1\n"));
    const auto written = bed_.written(1, std::chrono::seconds(10));
    EXPECT_TRUE(!written.empty() && written[0].type == EV_LED && written[0].code == LED_CAPSL && written[0].value == 0);

    bed_.add(2, dev::mouse().on("usb-musb-hdrc.1-1.1/input1"));
    ASSERT_TRUE(wait_for("/dev/event2 is mouse...\n"));
    EXPECT_EQ(play_and_receive(2, {ev(EV_REL, REL_X, 3)}, 1), (Evs{{EV_ABS, ABS_X, 103}}));
    bed_.remove(1);
    ASSERT_TRUE(wait_for("Remove device:touchscreen_sub\n"));
    bed_.remove(2);
    ASSERT_TRUE(wait_for("/dev/event2 fail to connect!\n"));
    // The mouse went with the keyboard: its own removal finds nothing left.
    EXPECT_EQ(daemon_->count("Remove device:"), 1);
}

TEST_F(DaemonWithDevices, BadInputIsLoggedWithoutDisturbingOthers)
{
    bed_.add(1, dev::full_keyboard().on("board-kbd/input0"), {.fail_ioctls = true});
    ASSERT_TRUE(wait_for("This is not a USB device or type is not identified\n"));
    bed_.add(2, dev::single_touch_screen(), {.with_phys = false, .with_name = false});
    ASSERT_TRUE(wait_for("open /sys/class/input/event2/device/phys error! \n") && wait_for("/dev/event2 is touchscreen...\n"));

    // A read that is not a whole record is dropped and reading goes on.
    bed_.add(4, dev::multi_touch_screen().on("usb-musb-hdrc.1-1.2/input0"));
    ASSERT_TRUE(wait_for("usb input,seat:2\n"));
    const char torn[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    ASSERT_TRUE(bed_.write_raw(4, torn, sizeof torn));
    ASSERT_TRUE(wait_for("Read error: "));
    EXPECT_EQ(play_and_receive(4, {ev(EV_ABS, ABS_Y, 9), ev(EV_SYN, SYN_REPORT, 0)}, 2),
              (Evs{{EV_ABS, ABS_Y, 2}, {EV_SYN, 0, 0}}));
    EXPECT_TRUE(daemon_->alive());
}

// Nodes that vanish mid-read, over many plug cycles: the fault drills.
// Signals flooding the daemon while it logs every event (this pointer's raw reports find no calibration
// for its seat): each lands on the main thread, a line that would re-enter the logger is dropped.
TEST_F(DaemonWithDevices, ASignalFloodDuringAnInputBurstLeavesTheDaemonServing)
{
    ASSERT_TRUE(bed_.add(1, dev::mouse_with_abs().on("usb-musb-hdrc.1-1.2/input0")));
    ASSERT_TRUE(wait_for("usb input,seat:2\n"));
    std::atomic<bool> stop{false};
    std::thread flood([&] {
        while (!stop.load()) {
            kill(daemon_->pid(), SIGWINCH);
            usleep(100);
        }
    });
    for (int i = 0; i < 200; ++i)
        bed_.play(1, std::vector<tactord::input_event>(10, ev(EV_REL, REL_X, 1)));
    stop.store(true);
    flood.join();
    ASSERT_TRUE(wait_for("catch a signal: 28"));
    // A read cut short may leave the emulated byte stream out of step (never a real node's): a fresh node shows it serving.
    const std::size_t since = daemon_->mark();
    ASSERT_TRUE(bed_.add(2, dev::full_keyboard().on("usb-musb-hdrc.1-1.1/input0")));
    ASSERT_TRUE(wait_for("/dev/event2 is keyboard...\n", since));
    EXPECT_EQ(play_and_receive(2, {ev(EV_KEY, KEY_A, 1)}, 1), (Evs{{EV_KEY, KEY_A, 1}}))
        << daemon_->output().substr(since);
    EXPECT_TRUE(daemon_->alive());
}

}  // namespace
