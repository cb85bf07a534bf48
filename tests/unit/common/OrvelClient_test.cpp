// Remote-screen frames built from events, and the never-connected link.
#include "common/OrvelClient.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "common/OrvelClient_internal.h"
#include "common/screen_manager.h"
#include "common/screen_manager_internal.h"
#include "support/log_capture.h"
#include "support/screen_clients.h"

namespace {

// Header words, then the payload as 32-bit words (key records: wVk/wScan in
// the first word).
std::vector<uint32_t> words(const std::vector<uint8_t>& frame)
{
    std::vector<uint32_t> w(frame.size() / 4);
    if (!w.empty())
        std::memcpy(w.data(), frame.data(), w.size() * 4);
    return w;
}

constexpr uint32_t F = IPC_PKG_FLAG;

TEST(IpcFrames, EventsBecomeTheAgentsRecords)
{
    testsupport::ScreenClients clients({2});
    set_ipc_window_size(1920, 1080);
    struct Case {
        tactord::input_event ev;
        std::vector<uint32_t> frame;
    } cases[] = {
        {{0, 0, 1, 273, 1}, {F, 28, 0, 1, 0, 0, 0, 0x0008, 0, 0}},
        {{0, 0, 1, 273, 0}, {F, 28, 0, 1, 0, 0, 0, 0x0010, 0, 0}},
        {{0, 0, 1, 274, 0}, {F, 28, 0, 1, 0, 0, 0, 0x0040, 0, 0}},
        {{0, 0, 1, 330, 1}, {F, 28, 0, 16, 0, 0, 0, 0x0002, 0, 0}},
        {{0, 0, 2, 8, -1}, {F, 28, 0, 1, 0, 0, static_cast<uint32_t>(-120), 0x0800, 0, 0}},
        {{0, 0, 1, 30, 2}, {F, 20, 0, 2, 30u << 16, 0x08, 0, 0}},
        {{0, 0, 1, 30, 0}, {F, 20, 0, 2, 30u << 16, 0x0A, 0, 0}},
        {{0, 0, 3, 53, 960}, {F, 28, 0, 16, 32767, 0, 0, 0x8001, 0, 0}},
        {{0, 0, 3, 1, 1080}, {F, 28, 0, 16, 32767, 65535, 0, 0x8001, 0, 0}},  // x kept
        {{0, 0, 2, 0, 1920}, {F, 28, 0, 1, 65535, 65535, 0, 0x8001, 0, 0}},
        {{0, 0, 26, 0, 0}, {F, 4, 0, 11}},
        {{0, 0, 26, 1, 0}, {F, 4, 0, 12}},
        {{0, 0, 27, 0, 0}, {F, 4, 0, 4}},
        {{0, 0, 27, 1, 0}, {F, 4, 0, 5}},
        {{0, 0, 28, 0, 1}, {F, 8, 0, 6, 1}},
        {{0, 0, 28, 2, 7}, {F, 8, 0, 8, 0}},
    };
    const int fd = clients.daemon_fd(2);
    for (Case& c : cases) {
        EXPECT_EQ(sendToIPC(fd, &c.ev), static_cast<int>(c.frame.size() * 4));
        EXPECT_EQ(words(clients.bytes(2)), c.frame) << c.ev.type << "/" << c.ev.code;
    }
    for (tactord::input_event e : {tactord::input_event{0, 0, 28, 3, 1}, tactord::input_event{0, 0, 33, 0, 0}})
        EXPECT_EQ(sendToIPC(fd, &e), -1);
    EXPECT_EQ(sendToIPC(0, &cases[0].ev), -1);
    EXPECT_TRUE(clients.bytes(2).empty());
}

TEST(IpcLink, NeverConnectedAnswers)
{
    testsupport::LogCapture log;
    ipc_client_reset();
    EXPECT_EQ(ipcIsExist(), 0);
    EXPECT_EQ(getIpcHanle(), 0);
    EXPECT_EQ(getIpcExtScrExist(), 0);
    EXPECT_STREQ(ipcVersion(), "");
    EXPECT_EQ(sendCmdToIpc(CMD_REBOOT, 0, 0), -1);
    EXPECT_TRUE(log.has("Ipc not connected\n"));
    EXPECT_EQ(getIPCWinSize(getIpcHanle()), -1);
    EXPECT_EQ(getIPCVersion(getIpcHanle()), -1);
    int refused = 0;
    for (const auto& line : log.lines())
        refused += line.text.find("Get win size error, no is ") != std::string::npos ? 1 : 0;
    EXPECT_EQ(refused, 2);
    // Pointer moves need an IPC output.
    tactord::input_event move{0, 0, 3, 0, 10};
    EXPECT_EQ(sendToIPC(7, &move), -1);
    EXPECT_TRUE(log.has("IPC output error\n"));
    uint8_t small[39];
    EXPECT_EQ(build_ipc_frame(small, sizeof small, &move), -1);
    EXPECT_EQ(setIpcIpAddr(nullptr), -1);
    EXPECT_TRUE(log.has("Set ipc ip error, ip null\n"));
    EXPECT_EQ(setIpcIpAddr("192.168.100.200.extra"), 0);
    char addr[16];
    getIpcIpAddr(addr, sizeof addr);
    EXPECT_STREQ(addr, "192.168.100.200");
    ipc_client_reset();
}

TEST(IpcLink, CommandsOnAConnectedLink)
{
    testsupport::LogCapture log;
    testsupport::ScreenClients clients({2});
    gs_ipcfd.store(clients.daemon_fd(2));
    struct Case {
        int cmd;
        int result;
        std::vector<uint32_t> frame;
    } cases[] = {
        {CMD_SHUTDOWN, 0, {F, 4, 0, 13}},
        {CMD_STANDBY, 0, {F, 4, 0, 14}},
        {CMD_REBOOT, 0, {F, 4, 0, 15}},
        {CMD_WAKEUP, 0, {F, 4, 0, 18}},
        {CMD_SETTING_RESOLUTION, -1, {F, 12, 0, 19, 1280, 800}},  // whole, and still -1
        {5, -1, {}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(sendCmdToIpc(c.cmd, 1280, 800), c.result);
        EXPECT_EQ(words(clients.bytes(2)), c.frame);
    }
    EXPECT_TRUE(log.has("Not surpported cmd:5\n"));
    EXPECT_EQ(getIPCWinSize(getIpcHanle()), 0);
    EXPECT_EQ(getIPCVersion(getIpcHanle()), 0);
    EXPECT_EQ(words(clients.bytes(2)), (std::vector<uint32_t>{F, 4, 0, 10, F, 4, 0, 17}));
    ipc_client_reset();
}

}  // namespace
