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
#include "sim/evdev_testbed.h"
#include "sim/devices.h"
#include "support/scratch_root.h"
#include "support/screen_clients.h"

namespace {

using emul::ev;
using testsupport::Ev;
namespace dev = emul::devices;

class DaemonWithDevices : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"));
        ASSERT_TRUE(daemon_->started());
        ASSERT_TRUE(daemon_->wait_for("path:usb-musb-hdrc.0-1----seat:5"));
    }
    bool wait_for(const std::string& text, std::size_t since = 0) { return daemon_->wait_for(text, since); }
    // Plays the events into a node and reads what the main screen's client
    // receives (registered on first use), cursor show/hide records aside.
    std::vector<Ev> play_and_receive(int node, const std::vector<tactord::input_event>& events, std::size_t n)
    {
        if (!client_) {
            client_ = std::make_unique<testharness::DisplayClient>(root_.path());
            testharness::DisplayClient probe(root_.path());
            client_->register_for(0);
            probe.send(testharness::make_msg(TYPE_MODE_GET));  // answered after the registration
            probe.read_reply();
        }
        std::vector<Ev> out;
        if (!bed_.play(node, events))
            return out;
        while (out.size() < n) {
            const auto e = client_->read_event();
            if (!e)
                break;
            if (e->type != EV_PRIV_CURSOR_SHOW)
                out.push_back({e->type, e->code, e->value});
        }
        return out;
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
    ASSERT_TRUE(wait_for("usb input,seat:5\n"));
    ASSERT_TRUE(wait_for("add screen id:0, seat 5 to touchscreen...\n"));
    // In order, scaled from 0..4095 to the 1920 x 1080 panel.
    EXPECT_EQ(play_and_receive(3, {ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, 100), ev(EV_ABS, ABS_Y, 200),
                                   ev(EV_SYN, SYN_REPORT, 0)}, 4),
              (std::vector<Ev>{{EV_KEY, BTN_MOUSE, 1}, {EV_ABS, ABS_X, 46}, {EV_ABS, ABS_Y, 52}, {EV_SYN, 0, 0}}));

    bed_.remove(3);
    ASSERT_TRUE(wait_for("Remove device:touchscreen_main\n"));
    ASSERT_TRUE(wait_for("/dev/event3 fail to connect!\n"));
    const std::size_t since = daemon_->mark();
    ASSERT_TRUE(bed_.add(6, dev::single_touch_screen()));
    ASSERT_TRUE(wait_for("add screen id:0, seat 5 to touchscreen...\n", since));
    // Its raw report goes through the default calibration.
    EXPECT_EQ(play_and_receive(6, {ev(EV_ABS, ABS_X, 1000), ev(EV_ABS, ABS_Y, 1000), ev(EV_SYN, SYN_REPORT, 0)}, 3),
              (std::vector<Ev>{{EV_ABS, ABS_X, 130}, {EV_ABS, ABS_Y, 535}, {EV_SYN, 0, 0}}));
}

TEST_F(DaemonWithDevices, CompositeDeviceOnSeatOneGoesAsAWholeAndItsKeyboardLedIsCleared)
{
    bed_.add(1, dev::full_keyboard().on("usb-musb-hdrc.1-1.1/input0"));
    ASSERT_TRUE(wait_for("/dev/event1 is keyboard...\n"));
    ASSERT_TRUE(wait_for("usb input,seat:1\n"));
    const auto written = bed_.written(1, std::chrono::seconds(10));
    ASSERT_FALSE(written.empty()) << daemon_->output();
    EXPECT_TRUE(written[0].type == EV_LED && written[0].code == LED_CAPSL && written[0].value == 0);

    bed_.add(2, dev::mouse().on("usb-musb-hdrc.1-1.1/input1"));
    ASSERT_TRUE(wait_for("/dev/event2 is mouse...\n"));
    EXPECT_EQ(play_and_receive(2, {ev(EV_REL, REL_X, 3)}, 1), (std::vector<Ev>{{EV_ABS, ABS_X, 103}}));
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
    ASSERT_TRUE(wait_for("open /sys/class/input/event2/device/phys error! \n"));
    ASSERT_TRUE(wait_for("/dev/event2 is touchscreen...\n"));

    // A read that is not a whole record is dropped and reading goes on.
    bed_.add(4, dev::multi_touch_screen().on("usb-musb-hdrc.1-1.2/input0"));
    ASSERT_TRUE(wait_for("usb input,seat:2\n"));
    const char torn[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    ASSERT_TRUE(bed_.write_raw(4, torn, sizeof torn));
    ASSERT_TRUE(wait_for("Read error: "));
    EXPECT_EQ(play_and_receive(4, {ev(EV_ABS, ABS_Y, 9), ev(EV_SYN, SYN_REPORT, 0)}, 2),
              (std::vector<Ev>{{EV_ABS, ABS_Y, 2}, {EV_SYN, 0, 0}}));
    EXPECT_TRUE(daemon_->alive());
}

// Hub devices streamed into and unplugged while the daemon reads them, one
// after another, while the next one is plugged in: every record goes after
// its last read, and the daemon keeps serving.
TEST_F(DaemonWithDevices, NodesUnpluggedWhileEventsStreamInGoAwayCleanly)
{
    const std::vector<tactord::input_event> burst(160, ev(EV_REL, REL_X, 1));
    const auto mouse = [](int n) {
        return dev::mouse().on("usb-musb-hdrc.1-1.2." + std::to_string(n) + "/input0");
    };
    ASSERT_TRUE(bed_.add(0, mouse(0)));
    ASSERT_TRUE(wait_for("/dev/event0 is mouse...\n"));
    for (int n = 1; n < 16; ++n) {
        ASSERT_TRUE(bed_.add(n, mouse(n)));
        // Registered before it is unplugged in the next round (a node that
        // comes and goes between two scans is never seen).
        ASSERT_TRUE(wait_for("/dev/event" + std::to_string(n) + " is mouse...\n"));
        for (int i = 0; i < 2; ++i)
            bed_.play(n - 1, burst);
        bed_.remove(n - 1);
        // Generous: a machine that may be busy.
        ASSERT_TRUE(daemon_->wait_for("/dev/event" + std::to_string(n - 1) + " fail to connect!\n", 0,
                                      std::chrono::seconds(30)))
            << daemon_->output();
    }
    EXPECT_EQ(play_and_receive(15, {ev(EV_REL, REL_Y, 5)}, 1), (std::vector<Ev>{{EV_ABS, ABS_Y, 105}}));
    EXPECT_TRUE(daemon_->alive());
    EXPECT_EQ(daemon_->count("AddressSanitizer"), 0);
}

// Signals flooding the daemon while it logs every event (this pointer's
// events go to the raw-report parser, which finds no calibration record for
// its seat and says so): each lands on the main thread, a line that would
// re-enter the logger is dropped, and the daemon goes on serving.
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
    // The emulated node is a byte stream: a read cut short by a signal may
    // leave it out of step with the records, which a real evdev node never
    // is. A fresh node shows the daemon serving.
    const std::size_t since = daemon_->mark();
    ASSERT_TRUE(bed_.add(2, dev::full_keyboard().on("usb-musb-hdrc.1-1.1/input0")));
    ASSERT_TRUE(wait_for("/dev/event2 is keyboard...\n", since));
    EXPECT_EQ(play_and_receive(2, {ev(EV_KEY, KEY_A, 1)}, 1), (std::vector<Ev>{{EV_KEY, KEY_A, 1}}))
        << daemon_->output().substr(since);
    EXPECT_TRUE(daemon_->alive());
}

}  // namespace
