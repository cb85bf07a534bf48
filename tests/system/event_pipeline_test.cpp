// Device to display client, end to end: the real daemon, emulated input devices, a 1280 x 800
// framebuffer, the touch-lock device, and clients of the main and the sub screen.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/inputevent_handle.h"
#include "sim/daemon_process.h"
#include "sim/dev_mod_cfg_emul.h"
#include "harness/display_client.h"
#include "sim/evdev_testbed.h"
#include "sim/fb_emul.h"
#include "sim/devices.h"
#include "support/scratch_root.h"
#include "support/screen_clients.h"

namespace {

using namespace std::chrono_literals;
using testharness::DisplayClient;
using emul::ev;
using testharness::make_msg;
using testsupport::Ev;
using Evs = std::vector<Ev>;
using Events = std::vector<tactord::input_event>;
namespace dev = emul::devices;

SystemMsg msg(int32_t type, int32_t scr, int32_t value = 0)
{
    SystemMsg m = make_msg(type, scr);
    m.data.nValue = value;
    return m;
}

const Evs kLockStates = {{28, 0, 0}, {28, 1, 0}, {28, 2, 0}};

// An optional control message, events played into a node, what each client receives next.
struct Step {
    std::optional<SystemMsg> message;
    int node;
    Events play;
    Evs main;
    Evs sub;
};

template <typename T>
std::vector<T> cat(std::initializer_list<std::vector<T>> parts)
{
    std::vector<T> out;
    for (const auto& p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

class EventPipeline : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"));
        ASSERT_TRUE(daemon_->wait_for("nice is "));
        for (auto* c : {&ctl_, &main_, &sub_})
            *c = std::make_unique<DisplayClient>(root_.path());
        ASSERT_TRUE(main_->register_for(MAIN_SCREEN) && sub_->register_for(SUB_SCREEN));
        control(make_msg(TYPE_MODE_GET));
    }
    void TearDown() override
    {
        EXPECT_EQ(receive(*main_, SIZE_MAX, 300ms), Evs{});
        EXPECT_EQ(receive(*sub_, SIZE_MAX, 300ms), Evs{});
        if (HasFailure())
            std::fprintf(stderr, "%s", daemon_->output().c_str());
    }
    void plug(int node, const emul::TestDevice& d, const std::string& line)
    {
        const std::size_t since = daemon_->mark();
        ASSERT_TRUE(bed_.add(node, d));
        ASSERT_TRUE(daemon_->wait_for(line, since)) << line;
    }
    // Sends a control message and waits for a reply that comes after it.
    std::optional<SystemMsg> control(const SystemMsg& m)
    {
        if (!ctl_->send(m))
            return std::nullopt;
        if (m.type != TYPE_MODE_GET)
            ctl_->send(make_msg(TYPE_MODE_GET));
        return ctl_->read_reply();
    }
    // The emulated node is a byte stream: plays of at most ten records.
    void play(int node, const Events& events)
    {
        for (std::size_t i = 0; i < events.size(); i += 10)
            ASSERT_TRUE(bed_.play(node, Events(events.begin() + i, events.begin() + std::min(i + 10, events.size()))));
    }
    // The next n records (all within timeout of each other), cursor show/hide aside.
    static Evs receive(DisplayClient& c, std::size_t n, std::chrono::milliseconds timeout = 3s)
    {
        Evs out;
        while (out.size() < n) {
            const auto e = c.read_event(timeout);
            if (!e)
                break;
            if (e->type != EV_PRIV_CURSOR_SHOW)
                out.push_back({e->type, e->code, e->value});
        }
        return out;
    }
    void run(const std::vector<Step>& steps)
    {
        for (std::size_t i = 0; i < steps.size(); ++i) {
            SCOPED_TRACE("step " + std::to_string(i));
            const Step& s = steps[i];
            ASSERT_TRUE(!s.message || control(*s.message).has_value());
            play(s.node, s.play);
            EXPECT_EQ(receive(*main_, s.main.size()), s.main);
            EXPECT_EQ(receive(*sub_, s.sub.size()), s.sub);
        }
    }

    testsupport::ScratchRoot root_;
    const std::string conf_ = testsupport::write_port_conf(root_.at("/work"));
    emul::EvdevTestbed bed_;
    emul::FramebufferEmulator fb_{bed_.testbed(), 1280, 800};
    emul::DevModCfgEmulator lock_{bed_.testbed()};
    std::unique_ptr<emul::DaemonProcess> daemon_;
    std::unique_ptr<DisplayClient> ctl_, main_, sub_;
};

constexpr int MOUSE = 1;
constexpr int PANEL = 2;
const Events kSyn = {ev(EV_SYN, SYN_REPORT, 0)};

TEST_F(EventPipeline, MouseMotionFollowsTheSensitivityAndIsClampedInCloneMode)
{
    plug(MOUSE, dev::mouse(), "usb input,seat:2\n");
    run({
        {{}, MOUSE, {ev(EV_REL, REL_X, 10), ev(EV_SYN, SYN_REPORT, 0)}, {{3, 0, 110}, {0, 0, 0}}, {}},
        // 10 x 0.4 is 4; -1 x 0.4 truncates to 0.
        {msg(TYPE_SET_MOUSE_SENSITIVITY, 0, 1), MOUSE, {ev(EV_REL, REL_X, 10), ev(EV_REL, REL_Y, -1)},
         {{3, 0, 114}, {3, 1, 100}}, {}},
        {msg(TYPE_SET_MOUSE_SENSITIVITY, 0, 10), MOUSE, {ev(EV_REL, REL_X, 10), ev(EV_REL, REL_Y, -1)},
         {{3, 0, 144}, {3, 1, 97}}, {}},
        {{}, MOUSE, {ev(EV_REL, REL_X, 5000), ev(EV_REL, REL_Y, -5000)}, {{3, 0, 1279}, {3, 1, 0}}, {}},
    });
}

TEST_F(EventPipeline, ExtendedModeCrossesScreensTheWheelGoesToTheFocusAndAClickMovesIt)
{
    plug(MOUSE, dev::mouse(), "usb input,seat:2\n");
    plug(PANEL, dev::multi_touch_screen(), "add screen id:0, seat 5 to touchscreen...\n");
    SystemMsg extended = make_msg(TYPE_MODE_SET);
    extended.data.mode_info = {MODE_EXTERN, {0, 0, 0, 1, 2, 0, 0, 0, 0}, {}};  // main left of sub
    SystemMsg vnc = make_msg(TYPE_VNC_INPUT);
    vnc.data.evt = {0, 0, 32, ABS_X, 1500};  // a virtual-desktop point on the sub screen
    run({
        {extended, -1, {}, cat<Ev>({{{27, 1, 0}, {27, 0, 0}}, kLockStates}), {{27, 1, 0}}},
        // Right past the main screen's 1280 columns: x 2100 is 820 on the sub screen.
        {{}, MOUSE, {ev(EV_REL, REL_X, 2000)}, {{27, 1, 0}}, {{27, 0, 0}, {3, 0, 820}}},
        {{}, MOUSE, {ev(EV_REL, REL_WHEEL, 1)}, {{2, 8, 1}}, {}},
        // A touch on the main screen takes the cursor back and goes down there.
        {{}, PANEL, {ev(EV_ABS, ABS_X, 2048), ev(EV_KEY, BTN_TOUCH, 1), ev(EV_SYN, SYN_REPORT, 0)},
         {{27, 0, 0}, {3, 0, 639}, {1, 272, 1}, {0, 0, 0}}, {{27, 1, 0}}},
        // The mouse takes the cursor and the focus to the sub screen (from x 639) ...
        {{}, MOUSE, {ev(EV_REL, REL_X, 2000), ev(EV_KEY, BTN_LEFT, 1)}, {{27, 1, 0}, {26, 1, 0}},
         cat<Ev>({{{27, 0, 0}, {3, 0, 1359}, {26, 0, 0}}, kLockStates, {{1, 272, 1}}})},
        // ... but the contact stays on the main client until it ends.
        {{}, PANEL, {ev(EV_KEY, BTN_TOUCH, 0), ev(EV_SYN, SYN_REPORT, 0)}, {{1, 272, 0}, {0, 0, 0}}, {}},
        {{}, MOUSE, {ev(EV_REL, REL_X, -1500)}, {{27, 0, 0}, {3, 0, 1139}}, {{27, 1, 0}}},
        {vnc, -1, {}, {{27, 1, 0}}, {{27, 0, 0}, {3, 0, 220}}},
    });
}

// The keyboard LEDs each toggle lights: the lock-key unit tests.
TEST_F(EventPipeline, KeysGoToTheFocusAndCapsLockTogglesOncePerPressOnEveryKeyboard)
{
    plug(1, dev::full_keyboard(), "usb input,seat:1\n");
    plug(2, dev::full_keyboard().on("usb-musb-hdrc.1-1.1.4/input0"), "Add usb seat [1] extern device:");
    run({
        {{}, 1, {ev(EV_KEY, KEY_A, 1), ev(EV_KEY, KEY_A, 0)}, {{1, KEY_A, 1}, {1, KEY_A, 0}}, {}},
        {{}, 1, {ev(EV_KEY, KEY_CAPSLOCK, 1), ev(EV_KEY, KEY_CAPSLOCK, 2), ev(EV_KEY, KEY_CAPSLOCK, 2),
                 ev(EV_KEY, KEY_CAPSLOCK, 0)},
         {{28, 0, 1}, {1, KEY_CAPSLOCK, 0}}, {}},
        {{}, 2, {ev(EV_KEY, KEY_CAPSLOCK, 1)}, {{28, 0, 0}}, {}},
    });
}

// 2048 of the panel's 0..4095 is x 639 and y 399 on the 1280 x 800 output.
TEST_F(EventPipeline, MultiTouchContactsAreScaledHeldUntilTheirReportAndCutToTwoSlots)
{
    plug(PANEL, dev::multi_touch_screen(), "add screen id:0, seat 5 to touchscreen...\n");
    const Events long_report = cat<tactord::input_event>(
        {{ev(EV_ABS, ABS_MT_TRACKING_ID, 2)}, Events(21, ev(EV_ABS, ABS_X, 0)), {ev(EV_KEY, BTN_TOUCH, 1)}, kSyn});
    const Events release = {ev(EV_KEY, BTN_TOUCH, 0), ev(EV_SYN, SYN_REPORT, 0)};
    const Evs released = {{1, 272, 0}, {0, 0, 0}};
    run({
        {{}, PANEL, {ev(EV_ABS, ABS_MT_TRACKING_ID, 1), ev(EV_ABS, ABS_MT_POSITION_X, 2048),
                     ev(EV_ABS, ABS_MT_POSITION_Y, 2048), ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, 2048),
                     ev(EV_ABS, ABS_Y, 2048), ev(EV_SYN, SYN_REPORT, 0)},
         {{3, 57, 1}, {3, 53, 639}, {3, 54, 399}, {1, 272, 1}, {3, 0, 639}, {3, 1, 399}, {0, 0, 0}}, {}},
        {{}, PANEL, {ev(EV_ABS, ABS_MT_SLOT, 2), ev(EV_ABS, ABS_MT_POSITION_X, 100), ev(EV_ABS, ABS_MT_SLOT, 0),
                     ev(EV_ABS, ABS_MT_POSITION_X, 4095), ev(EV_SYN, SYN_REPORT, 0)},
         {{3, 47, 0}, {3, 53, 1279}, {0, 0, 0}}, {}},
        {{}, PANEL, release, released, {}},
        // Twenty events of a first report are kept; the rest (the press too) are lost.
        {{}, PANEL, long_report, cat<Ev>({{{3, 57, 2}}, Evs(19, {3, 0, 0}), {{0, 0, 0}}}), {}},
        {{}, PANEL, release, released, {}},
    });
    // A 10-bit controller: its 0..1023 range is scaled to the output.
    testsupport::write_file(root_.at("/proc/atmel_product"), "214e");
    run({{{}, PANEL, {ev(EV_ABS, ABS_X, 512), ev(EV_KEY, BTN_TOUCH, 1), ev(EV_SYN, SYN_REPORT, 0)},
          {{3, 0, 640}, {1, 272, 1}, {0, 0, 0}}, {}}});
    EXPECT_TRUE(daemon_->wait_for("open touchscreen PID success! "));
}

TEST_F(EventPipeline, ALockedScreenGetsItsTouchesRaised)
{
    plug(PANEL, dev::multi_touch_screen(), "add screen id:0, seat 5 to touchscreen...\n");
    lock_.set_state(MAIN_SCREEN, {0, 0, 0, /*status locked*/ 0, 0, 0});
    run({{{}, PANEL, {ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, 2048), ev(EV_SYN, SYN_REPORT, 0)},
          {{35, 272, 1}, {37, 0, 639}, {34, 0, 0}}, {}}});
}

TEST_F(EventPipeline, TheSixthTouchscreenIsNotTracked)
{
    for (int n = 0; n < 6; ++n)
        plug(n, dev::multi_touch_screen().on("board-mt" + std::to_string(n) + "/input0"),
             "/dev/event" + std::to_string(n) + " is touchscreen...\n");
    ASSERT_TRUE(daemon_->wait_for("non usb input,path:board-mt5/input0"));
    for (int n = 0; n < 5; ++n)
        play(n, {ev(EV_ABS, ABS_MT_TRACKING_ID, n)});  // first reports held open
    ASSERT_TRUE(daemon_->wait_for("FindDownSendInfo  pos = 4\n"));
    run({{{}, 5, {ev(EV_ABS, ABS_MT_TRACKING_ID, 9), ev(EV_SYN, SYN_REPORT, 0)}, {{3, 57, 9}, {0, 0, 0}}, {}}});
    EXPECT_TRUE(daemon_->wait_for("nCount >= 5"));
}

// Five-point calibration with real touches, end to end: the tactorctl calibrate tests.
TEST_F(EventPipeline, ABoardPanelIsConvertedWithTheDefaultAndTheSetParametersWithinTwelveBits)
{
    plug(PANEL, dev::single_touch_screen().on("board-tsc/input0"), "add screen id:0, seat 0 to touchscreen...\n");
    SystemMsg doubled = make_msg(TYPE_SET_TS_CALI_PARA);
    doubled.data.ts_cali_para = {0, 131072, 0, 0, 0, 131072, 65536, 0};
    run({
        // The default transform: raw (1000, 1000) is (130, 535); x of raw 100 is -110.
        {{}, PANEL, {ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, 1000), ev(EV_ABS, ABS_Y, 1000), kSyn[0]},
         {{1, 272, 1}, {3, 0, 130}, {3, 1, 535}, {0, 0, 0}}, {}},
        {{}, PANEL, {ev(EV_ABS, ABS_X, 100), ev(EV_ABS, ABS_Y, 100), kSyn[0]}, {{3, 0, 0}, {3, 1, 729}, {0, 0, 0}}, {}},
        {doubled, PANEL, {ev(EV_ABS, ABS_X, 3000), ev(EV_ABS, ABS_Y, 1000), kSyn[0]},
         {{3, 0, 4095}, {3, 1, 2000}, {0, 0, 0}}, {}},
        // A report without coordinates gets the last ones.
        {{}, PANEL, {ev(EV_KEY, BTN_TOUCH, 0), kSyn[0]}, {{1, 272, 0}, {3, 0, 4095}, {3, 1, 2000}, {0, 0, 0}}, {}},
        // Eleven events before an EV_SYN: the first ten are dropped.
        {{}, PANEL, cat<tactord::input_event>({Events(11, ev(EV_ABS, ABS_PRESSURE, 1)), kSyn}),
         {{3, ABS_PRESSURE, 1}, {3, 0, 4095}, {3, 1, 2000}, {0, 0, 0}}, {}},
    });
    EXPECT_TRUE(daemon_->wait_for("TS raw msg before SYN is too much\n"));
}

}  // namespace
