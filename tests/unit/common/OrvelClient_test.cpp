// Remote-screen frames, the receive parser, and the link to a fake agent.
#include "common/OrvelClient.h"

#include "support/unit_common.h"

namespace {

std::vector<uint32_t> words(const Bytes& frame)
{
    std::vector<uint32_t> w(frame.size() / 4);
    if (!w.empty())  // memcpy from a null pointer is undefined
        std::memcpy(w.data(), frame.data(), w.size() * 4);
    return w;
}

constexpr uint32_t F = IPC_PKG_FLAG;

TEST(IpcLink, CommandsRefusedUnconnectedFramedWhenConnectedAndEventsBecomeTheAgentsRecords)
{
    testsupport::LogCapture log;
    ipc_client_reset();
    EXPECT_EQ(getIpcHanle(), 0);
    EXPECT_EQ(getIPCWinSize(getIpcHanle()), -1);
    EXPECT_EQ(getIPCVersion(getIpcHanle()), -1);
    const auto lines = log.lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](auto& l) { return l.text.find("Get win size error, no is ") != std::string::npos; }),
              2);
    tactord::input_event move{0, 0, 3, 0, 10};
    EXPECT_EQ(sendToIPC(7, &move), -1);
    uint8_t small[39];
    EXPECT_EQ(build_ipc_frame(small, sizeof small, &move), -1);
    EXPECT_EQ(setIpcIpAddr(nullptr), -1);
    EXPECT_EQ(sendIpcScanGunData(reinterpret_cast<const uint8_t*>("12"), 2), -2);
    for (const char* line : {"IPC output error\n", "Set ipc ip error, ip null\n", "Send data failure...\r\n"})
        EXPECT_TRUE(log.has(line)) << line;
    EXPECT_EQ(setIpcIpAddr("192.168.100.200.extra"), 0);
    char addr[16];
    getIpcIpAddr(addr, sizeof addr);
    EXPECT_STREQ(addr, "192.168.100.200");

    testsupport::ScreenClients clients({2});
    gs_ipcfd.store(clients.daemon_fd(2));
    struct Case {
        int cmd, result;
        std::vector<uint32_t> frame;
    } cases[] = {{CMD_SHUTDOWN, 0, {F, 4, 0, 13}}, {CMD_STANDBY, 0, {F, 4, 0, 14}}, {CMD_REBOOT, 0, {F, 4, 0, 15}},
                 {CMD_WAKEUP, 0, {F, 4, 0, 18}},
                 {CMD_SETTING_RESOLUTION, -1, {F, 12, 0, 19, 1280, 800}},  // whole, and still -1
                 {5, -1, {}}};
    for (const Case& c : cases) {
        EXPECT_EQ(sendCmdToIpc(c.cmd, 1280, 800), c.result);
        EXPECT_EQ(words(clients.bytes(2)), c.frame);
    }
    EXPECT_TRUE(log.has("Not surpported cmd:5\n"));
    EXPECT_EQ(sendIpcScanGunData(reinterpret_cast<const uint8_t*>("0123"), 4), 28);
    EXPECT_EQ(setIpcScanGunDataCodeType(7), 0);
    const uint32_t scan = USB_SCAN_FLAG;
    EXPECT_EQ(words(clients.bytes(2)), (std::vector<uint32_t>{F, 16, 0, 3, scan, 1, 0x33323130, F, 16, 0, 3, scan, 0, 7}));
    set_ipc_window_size(1920, 1080);
    struct Frame {
        tactord::input_event ev;
        std::vector<uint32_t> frame;
    } frames[] = {
        {{0, 0, 1, 273, 1}, {F, 28, 0, 1, 0, 0, 0, 0x0008, 0, 0}},
        {{0, 0, 1, 273, 0}, {F, 28, 0, 1, 0, 0, 0, 0x0010, 0, 0}},
        {{0, 0, 1, 274, 0}, {F, 28, 0, 1, 0, 0, 0, 0x0040, 0, 0}},
        {{0, 0, 1, 330, 1}, {F, 28, 0, 16, 0, 0, 0, 0x0002, 0, 0}},
        {{0, 0, 2, 8, -1}, {F, 28, 0, 1, 0, 0, static_cast<uint32_t>(-120), 0x0800, 0, 0}},
        {{0, 0, 1, 30, 2}, {F, 20, 0, 2, 30u << 16, 0x08, 0, 0}}, {{0, 0, 1, 30, 0}, {F, 20, 0, 2, 30u << 16, 0x0A, 0, 0}},
        {{0, 0, 3, 53, 960}, {F, 28, 0, 16, 32767, 0, 0, 0x8001, 0, 0}},
        {{0, 0, 3, 1, 1080}, {F, 28, 0, 16, 32767, 65535, 0, 0x8001, 0, 0}},  // x kept
        {{0, 0, 2, 0, 1920}, {F, 28, 0, 1, 65535, 65535, 0, 0x8001, 0, 0}},
        {{0, 0, 26, 1, 0}, {F, 4, 0, 12}}, {{0, 0, 27, 1, 0}, {F, 4, 0, 5}},
        {{0, 0, 28, 0, 1}, {F, 8, 0, 6, 1}}, {{0, 0, 28, 2, 7}, {F, 8, 0, 8, 0}},
    };
    for (Frame& c : frames) {
        EXPECT_EQ(sendToIPC(clients.daemon_fd(2), &c.ev), static_cast<int>(c.frame.size() * 4));
        EXPECT_EQ(words(clients.bytes(2)), c.frame) << c.ev.type << "/" << c.ev.code;
    }
    for (tactord::input_event e : {tactord::input_event{0, 0, 28, 3, 1}, tactord::input_event{0, 0, 33, 0, 0}})
        EXPECT_EQ(sendToIPC(clients.daemon_fd(2), &e), -1);
    EXPECT_EQ(sendToIPC(0, &frames[0].ev), -1);
    EXPECT_TRUE(clients.bytes(2).empty());
    ipc_client_reset();
}

Bytes cut(const Bytes& b, std::size_t from, std::size_t to = SIZE_MAX)
{
    return Bytes(b.begin() + static_cast<long>(from), b.begin() + static_cast<long>(std::min(to, b.size())));
}

TEST(IpcReceive, FramesAreResynchronisedSplicedAndBounded)
{
    const Bytes version = agent_text_frame(MessageType_Version, "agent-2.0.1-build-77");  // 36 bytes
    const Bytes text52 = agent_text_frame(MessageType_Version, std::string(36, 'v'));
    const Bytes long64 = agent_frame(MessageType_OrvelExtentScreen, std::vector<uint32_t>(12, 1));
    const auto ext = [](uint32_t v) { return agent_frame(MessageType_OrvelExtentScreen, {v}); };
    const auto size = [](std::vector<uint32_t> w) { return agent_frame(MessageType_WindowsSize, w); };
    struct Case {
        std::vector<Bytes> reads;
        int ext = 0;
        std::string version = "";
        std::pair<int, int> win{0, 0};  // IPC output after
        std::size_t held = 0;           // bytes spliced for the next read
        int last = 0;                   // result of the last read
        const char* line = "";
        int ipc_mode = 0, tick = 1;
    } cases[] = {
        {{Bytes{0xAB, 0xCD, 1} + ext(5)}, 5},  // bytes before the marker
        {{cut(version, 0, 10), cut(version, 10)}, 0, "agent-2.0.1-bui", {}, 0, 0, "*****msg splice happened*****\n"},
        {{agent_frame(MessageType_Tick) + ext(7)}, 7, "", {}, 0, 0, "", 0, 0},  // two frames
        {{cut(ext(9), 0, 12)}, 0, "", {}, 12, 0, "*****half_msg_len = 12 is not enough, msg_len is 20*****\n"},
        {{cut(text52, 0, 40), cut(ext(3) + ext(4), 0, 40)}, 0, "", {}, 0, -1,
         "half_msg_buffer is too large, half_msg_len is  40\n"},
        {{cut(long64, 0, 56), cut(long64, 56) + ext(3)}, 3, "", {}, 0, 0, "ipc msg too long, msg_len is 64, dropped\n"},
        {{Bytes{0xCD, 0xAB, 0xCD, 0xAB, 0xF0, 0xFF, 0xFF, 0xFF} + ext(6)}, 6},  // a length beyond any frame
        {{cut(agent_frame(0), 0, 4) + Bytes(8, 0) + ext(2)}, 2},           // msgLen 0: no type
        {{size({0, 1, 1, 2, 2, 2, 1, 640, 480})}},  // a third record is never looked at
        {{size({1, 1280, 720})}, 0, "", {}, 0, 0, "", MODE_IPC_WINDOW},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        testsupport::LogCapture log(0);
        ipc_client_reset();
        screen_model_reset();
        gs_ipc_mode.store(c.ipc_mode);
        gs_ipcTick.store(1);
        {
            testsupport::UnitPeer agent;
            for (std::size_t i = 0; i < c.reads.size(); ++i) {
                ASSERT_TRUE(agent.put(c.reads[i].data(), c.reads[i].size()));
                EXPECT_EQ(ipcMsgHandle(reinterpret_cast<void*>(intptr_t{agent.daemon})), i + 1 == c.reads.size() ? c.last : 0);
            }
        }
        EXPECT_EQ(getIpcExtScrExist(), c.ext);
        EXPECT_EQ(ipcVersion(), c.version);
        EXPECT_EQ(gs_ipcTick.load(), c.tick);
        EXPECT_EQ(std::make_pair(output_devices[IPC_SCREEN].width, output_devices[IPC_SCREEN].height), c.win);
        EXPECT_EQ(ipc_rx.splice_len, c.held);
        EXPECT_TRUE(*c.line == 0 || log.has(c.line)) << c.line;
    }
    screen_model_reset();
    ipc_client_reset();
}

using RemoteLink = testsupport::RemoteLinkTest;

// Link time divided by 1000, then by 50 (a tick every 100 ms).
TEST_F(RemoteLink, ConnectsAreRetriedAndAnAnsweredLinkFollowsTheAddress)
{
    link_time_divisor.store(1000);
    ASSERT_EQ(initIpcClient(), 0);
    const std::string refused = "errno:" + std::string(strerror(ECONNREFUSED)) + " \n";
    ASSERT_TRUE(log_->wait_for(refused, 20));
    std::this_thread::sleep_for(100ms);  // more cycles, still twenty lines
    EXPECT_EQ(log_->count(refused), 20);
    link_time_divisor.store(50);
    FakePeer agent("173.0.0.2", IPC_PORT), moved("173.0.0.5", IPC_PORT);
    // An agent that answers keeps the link until a new address is set.
    ASSERT_TRUE(agent.accept());
    agent.answer_ticks = true;
    EXPECT_EQ(agent.frame().size() + agent.frame().size(), 8u);
    for (int i = 0; i < 30 && agent.ticks < 5; ++i)
        EXPECT_TRUE(agent.frame(100ms).empty());  // only ticks, answered
    EXPECT_TRUE(agent.ticks >= 5 && ipcIsExist() == 1);
    EXPECT_EQ(setIpcIpAddr("173.0.0.5"), 0);
    EXPECT_TRUE(moved.accept());
    EXPECT_GE(agent.bytes_until_closed(1s), 0);
}

}  // namespace
