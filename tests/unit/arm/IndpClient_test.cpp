// The INDP client against a fake screen, its exclusion with the agent link, a second disconnect run.
#include "arm/IndpClient.h"

#include "common/system_msg_internal.h"
#include "support/unit_common.h"

using IndpLink = testsupport::RemoteLinkTest;

// Real time: the thread checks its link every 5 s, so the screen is seen free before a reconnect.
TEST_F(IndpLink, ThePeerGetsScreenOnesRecordsUnlessTakenAndFreesTheScreenOnClose)
{
    FakePeer indp(INDP_PEER_ADDR, INDP_PORT);
    testsupport::UnitPeer client;
    for (const int display : {0, client.daemon}) {  // a display client on screen 1, or none
        gs_clients[SUB_SCREEN].store(display);
        ASSERT_EQ(InitArmIndpScreenClient(), 0);
        ASSERT_TRUE(indp.accept());
        EXPECT_EQ(indp.peer_address(), LINK_LOCAL_ADDR);
        ASSERT_TRUE(eventually([] { return gs_indpClientExist.load() == 1; }));
        EXPECT_EQ(gs_clients[SUB_SCREEN].load(), display != 0 ? display : gs_indpfd.load());
        EXPECT_EQ(log_->count("screen 1 has been init !!\n"), display != 0 ? 1 : 0);
        tactord::input_event ev{1, 2, 1, 30, 1};
        const testsupport::Bytes record(reinterpret_cast<uint8_t*>(&ev), reinterpret_cast<uint8_t*>(&ev + 1));
        EXPECT_TRUE(display != 0 || (send_event(SUB_SCREEN, &ev) == 16 && indp.bytes(16) == record));
        EXPECT_TRUE(indp.send(testsupport::Bytes(25, 0x5A)));  // read and dropped
        indp.hang_up();
        EXPECT_TRUE(eventually([] { return gs_indpClientExist.load() == 0; }));
        EXPECT_EQ(gs_clients[SUB_SCREEN].load(), display);
        link_threads_stop();
    }
}

TEST_F(IndpLink, TheAgentLinkAndTheIndpLinkExcludeEachOther)
{
    link_time_divisor.store(50);
    const struct {
        const char* addr;
        int port;
        const std::atomic<int>& connected;  // the link that stays
    } cases[] = {{"173.0.0.2", IPC_PORT, gs_ipcClientExist}, {INDP_PEER_ADDR, INDP_PORT, gs_indpClientExist}};
    for (const auto& c : cases) {
        FakePeer peer(c.addr, c.port);
        ASSERT_TRUE(initIpcClient() == 0 && InitArmIndpScreenClient() == 0 && peer.accept());
        EXPECT_TRUE(eventually([] { return link_threads_running() == 1; })) << c.addr;
        EXPECT_EQ(c.connected.load(), 1);
        link_threads_stop();
    }
}

TEST(RemoteClients, ASecondDisconnectRunLeavesAReusedDescriptorAlone)
{
    using handler = void (*)(int);
    for (auto [ready, disconnected] : {std::pair<handler, handler>{handleIPCReady, handleIPCDisconnected},
                                       std::pair<handler, handler>{handleINDPReady, handleINDPDisconnected}}) {
        int link[2], display[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, link), 0);
        ready(link[0]);
        disconnected(link[0]);
        if (ready == handleIPCReady)
            close(link[0]);  // the agent link's tick thread closes its own descriptor
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, display), 0);
        ASSERT_EQ(display[0], link[0]) << "the display client got the link's number";
        add_monitor_handle(display[0], handle_new_client_data, reinterpret_cast<void*>(intptr_t{display[0]}));
        ASSERT_EQ(handle_inputsys_init(SUB_SCREEN, display[0]), 0);
        disconnected(link[0]);
        EXPECT_NE(fcntl(display[0], F_GETFD), -1);
        EXPECT_TRUE(monitor_entry(0).fd == display[0] && gs_clients[SUB_SCREEN].load() == display[0]);
        EXPECT_EQ(ipcIsExist() + gs_indpClientExist.load(), 0);
        remove_monitor_handle(display[0]);
        gs_clients[SUB_SCREEN].store(0);
        for (int fd : {link[1], display[0], display[1]})
            close(fd);
    }
}
