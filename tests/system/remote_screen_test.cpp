// The real daemon with its remote-screen clients on (-i 1), inside a private
// network namespace this test makes, against a fake agent on 173.0.0.2:27015:
// its answers through the control socket, then the real liveness path.
#include <gtest/gtest.h>

#include "common/OrvelClient.h"
#include "harness/daemon_process.h"
#include "harness/display_client.h"
#include "harness/evdev_testbed.h"
#include "support/remote_link.h"
#include "support/scratch_root.h"

namespace {

using namespace std::chrono_literals;
using testharness::make_msg;
using testsupport::agent_frame;
using Words = std::vector<uint32_t>;

TEST(RemoteScreen, TheAgentsAnswersReachTheControlSocketAndASilentAgentIsDroppedAfterFourTicks)
{
    const std::string why = testsupport::enter_private_net();
    if (!why.empty())
        GTEST_SKIP() << "no private network namespace (" << why << "): never on the real network";
    testsupport::ScratchRoot root;
    testsupport::write_port_conf(root.at("/work"));
    testharness::EvdevTestbed bed;
    testsupport::FakePeer agent("173.0.0.2", IPC_PORT);
    testharness::DaemonProcess daemon(root.at("/work"), {"-p", "0", "-d", "0", "-i", "1"});
    ASSERT_TRUE(agent.accept(10s));
    const auto connected = std::chrono::steady_clock::now();
    for (const Words& want : {Words{IPC_PKG_FLAG, 4, 0, 10}, {IPC_PKG_FLAG, 4, 0, 17}, {IPC_PKG_FLAG, 4, 0, 0}})
        EXPECT_EQ(agent.frame(3s, true), want);
    ASSERT_TRUE(agent.send(testsupport::agent_text_frame(MessageType_Version, "agent 3.1")));
    ASSERT_TRUE(agent.send(agent_frame(MessageType_OrvelExtentScreen, {1})));
    ASSERT_TRUE(agent.send(agent_frame(MessageType_WindowsSize, {0, 1920, 1080, 1, 1024, 768})));
    EXPECT_TRUE(daemon.wait_for("==IPC win size:n:1 width 1024, height:768\n"));

    testharness::DisplayClient client(root.path());
    const auto ask = [&](int32_t type) {
        client.send(make_msg(type));
        return client.read_reply().value_or(SystemMsg{});
    };
    EXPECT_EQ(ask(TYPE_IPC_CONNECTED).data.ipc_connected, 1);
    EXPECT_EQ(ask(TYPE_ORVEL_EXT_SCR_EXIST).data.ipc_ext_scr_exist, 1);
    EXPECT_STREQ(ask(TYPE_GET_VERSION).data.version.orvelVer.data(), "agent 3.1");

    // No tick ever came back: three more ticks, the close at the 20-s check,
    // and a new link after the pause.
    EXPECT_EQ(agent.bytes_until_closed(30s), 3 * 16);
    EXPECT_GE(std::chrono::steady_clock::now() - connected, 19s);
    EXPECT_TRUE(daemon.wait_for("==IPC disconnected==\n"));
    ASSERT_TRUE(agent.accept(10s));
    EXPECT_EQ(agent.frame(), (Words{IPC_PKG_FLAG, 4, 0, 10}));  // sent before the link counts as up
    EXPECT_EQ(ask(TYPE_IPC_CONNECTED).data.ipc_connected, 1);
}

}  // namespace
