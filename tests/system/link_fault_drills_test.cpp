// Fault drills of the agent link, against the real daemon (-i 1) inside a
// private network namespace with a fake agent on 173.0.0.2:27015: a flood of
// ticks and a reset in the middle of a frame. Throughout, the daemon keeps
// serving its local clients and devices. (An agent that stops answering:
// remote_screen_test.cpp.)
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "common/OrvelClient.h"
#include "sim/daemon_process.h"
#include "sim/dev_mod_cfg_emul.h"
#include "harness/display_client.h"
#include "harness/drill.h"
#include "sim/evdev_testbed.h"
#include "sim/devices.h"
#include "support/remote_link.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testharness::DisplayClient;
using testharness::kTapEvents;
using testsupport::agent_frame;
using Words = std::vector<uint32_t>;

const Words kSizeRequest = {IPC_PKG_FLAG, 4, 0, MessageType_WindowsSize};

// The link's timing is the daemon's own: a tick every 5 s, 3 s before a
// reconnect.
TEST(LinkFaultDrills, FloodAndResetOfTheAgentLinkLeaveLocalClientsServed)
{
    const std::string why = testsupport::enter_private_net();
    if (!why.empty())
        GTEST_SKIP() << "no private network namespace (" << why << "): never on the real network";
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/work"));
    emul::EvdevTestbed bed;
    ASSERT_TRUE(bed.add(0, emul::devices::multi_touch_screen()));
    // The touch-lock controller the taps ask (an emulated node that is
    // missing leaves a descriptor of the emulation behind at each open).
    emul::DevModCfgEmulator driver(bed.testbed());
    testsupport::FakePeer agent("173.0.0.2", IPC_PORT);
    emul::DaemonProcess daemon(root.at("/work"), {"-p", "0", "-d", "0", "-i", "1"});
    DisplayClient main(root.path());
    ASSERT_TRUE(main.register_for(0));
    ASSERT_TRUE(testharness::round_trip(main, 1));
    testharness::ServingProbe probe(root.path());
    int taps = 0;
    const auto main_is_served = [&] {
        ++taps;
        ASSERT_TRUE(testharness::play_tap(bed, 0));
        EXPECT_EQ(testharness::receive(main, kTapEvents.size()), kTapEvents) << "tap " << taps;
    };

    // A flood of ticks: each one is parsed and clears the liveness flag, one
    // read per pass, between the other descriptors; the frame after the
    // flood is handled too.
    ASSERT_TRUE(agent.accept(10s));
    EXPECT_EQ(agent.frame(), kSizeRequest);
    const testsupport::Bytes tick = agent_frame(MessageType_Tick);
    testsupport::Bytes flood;
    for (int i = 0; i < 20000; ++i)
        flood.insert(flood.end(), tick.begin(), tick.end());
    std::thread sender([&] { EXPECT_TRUE(agent.send(flood)); });
    main_is_served();
    sender.join();
    ASSERT_TRUE(agent.send(agent_frame(MessageType_WindowsSize, {1, 1111, 2222})));
    EXPECT_TRUE(daemon.wait_for("==IPC win size:n:1 width 1111, height:2222\n"));
    main_is_served();

    // A reset in the middle of a frame: the link is dropped at once from the
    // main loop, the tick thread finds it gone at its next tick and connects
    // again after its pause. The half frame (a header announcing two size
    // records) is dropped with the link: the next link's answer is read
    // whole.
    std::size_t mark = daemon.mark();
    const testsupport::Bytes size_frame = agent_frame(MessageType_WindowsSize, {0, 640, 480, 1, 800, 600});
    ASSERT_TRUE(agent.send(testsupport::Bytes(size_frame.begin(), size_frame.begin() + 10)));
    agent.reset();
    EXPECT_TRUE(daemon.wait_for("==IPC disconnected==\n", mark));
    main_is_served();
    ASSERT_TRUE(agent.accept(15s));
    EXPECT_EQ(agent.frame(), kSizeRequest);
    ASSERT_TRUE(agent.send(agent_frame(MessageType_WindowsSize, {1, 1280, 720})));
    EXPECT_TRUE(daemon.wait_for("==IPC win size:n:1 width 1280, height:720\n", mark));

    EXPECT_EQ(probe.stop(), 0) << "of " << probe.rounds() << " round trips";
    EXPECT_TRUE(daemon.alive());
    if (::testing::Test::HasFailure()) {
        const std::string out = daemon.output();
        std::fprintf(stderr, "%s", out.substr(out.size() > 8000 ? out.size() - 8000 : 0).c_str());
    }
}

}  // namespace
