#include "common/usb_gun/usbgun_s.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <thread>

#include "common/usb_gun/crc32.h"
#include "common/usb_gun/unixsocket.h"
#include "common/usb_gun/usbgun_s_internal.h"
#include "common/usb_gun/usblog.h"
#include "support/scanner.h"
#include "support/scratch_root.h"

namespace {

using namespace testsupport;

// Indexes the configuration callback got (from the service's thread in the service tests).
std::mutex calls_mutex;
std::vector<int> calls;
int on_config(int func_index)
{
    std::lock_guard<std::mutex> guard(calls_mutex);
    calls.push_back(func_index);
    return 0;
}

class ScannerServer : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
        usbgun_srv.cb = {on_config, nullptr};
    }
    std::string log() const { return read_file(root_.at("/tmp/scan-server.txt")); }
    // A read of the configuration thread that brought these bytes.
    static config_next feed(const Bytes& bytes)
    {
        std::copy(bytes.begin(), bytes.end(), usbgun_srv.buf + usbgun_srv.held);
        return usbgun_config_take(static_cast<ssize_t>(bytes.size()));
    }
    static Bytes receive(int fd)
    {
        Bytes out(65536);
        const ssize_t n = unix_socket_read(fd, out.data(), out.size(), 1000);
        out.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
        return out;
    }

    ScratchRoot root_;
};

TEST_F(ScannerServer, ScanAndInventoryRecordsAreByteExact)
{
    const uint8_t three[] = {1, 2, 3};
    EXPECT_TRUE(UsbScanGunWriteData(0, eKbdData, three, 3) == 0 && UsbDevInfoWriteData(three, 3) == 0);  // no client yet
    EXPECT_EQ(count_text(log(), "unx socket handle not init.\r\n"), 2);

    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
    usbgun_srv.unx_fd = sv[0];
    for (const std::string& scan : std::vector<std::string>{"", "0123456789\r", std::string(300, 'x')}) {
        const auto n = static_cast<unsigned>(scan.size());
        ASSERT_EQ(UsbScanGunWriteData(1, eCdcData, reinterpret_cast<const uint8_t*>(scan.data()), n),
                  static_cast<int>(n + 36));
        const Bytes rec = receive(sv[1]);
        ASSERT_EQ(rec.size(), n + 36);
        EXPECT_EQ(Bytes(rec.begin(), rec.begin() + 28), unx_record(1, words({0x55AA55AA, 1, 1, n}), n + 24));
        EXPECT_EQ(word_at(rec, 28), calculate_CRC32(scan.data(), n));
        EXPECT_EQ(word_at(rec, 32), calculate_CRC32(rec.data() + 12, 20));
        EXPECT_EQ(std::string(rec.begin() + 36, rec.end()), scan);
    }
    EXPECT_EQ(count_text(log(), "ScanData write screenslot:1, datetype:1 data len:11, real len:47...\r\n"), 1);

    const Bytes list(sizeof(UsbDevInfo_t), 0x5A);
    ASSERT_EQ(UsbDevInfoWriteData(list.data(), static_cast<int>(list.size())), 0);
    Bytes rec;
    for (Bytes part; rec.size() < list.size() + 12 && !(part = receive(sv[1])).empty();)
        rec = rec + part;
    EXPECT_EQ(rec, unx_record(0, list));
    EXPECT_EQ(count_text(log(), "DevInfo write data len:16772, real len:16784...\r\n"), 1);
    EXPECT_EQ(UsbScanGunWriteData(0, eKbdData, nullptr, 3), -1);
}

// Per case: the indexes reported, the bytes kept, and whether the thread keeps its lock.
TEST_F(ScannerServer, ConfigurationRecordsAreReassembledAcrossReads)
{
    const Bytes type = unx_record(3, words({1}));
    const Bytes route = unx_record(4, words({1, 2}));
    const Bytes name = unx_record(2, name_payload(1, "Scanner"));
    const Bytes junk(20, 7);
    const struct {
        const char* what;
        std::vector<Bytes> reads;
        std::vector<int> calls;
        int held;
        config_next last;
    } cases[] = {
        {"head in two reads", {Bytes(name.begin(), name.begin() + 5), Bytes(name.begin() + 5, name.end())}, {2}, 0,
         config_next::unlock},
        {"payload still coming", {Bytes(route.begin(), route.end() - 4)}, {}, 16, config_next::unlock},
        {"two in one read, the second in the next round", {type + route, {}}, {3, 4}, 0, config_next::unlock},
        {"leading garbage: the second still follows", {Bytes{9, 9} + type + route, {}}, {3, 4}, 2,
         config_next::unlock},
        {"unknown index still reported", {unx_record(9, words({0}))}, {9}, 0, config_next::unlock},
        {"garbage", {junk}, {}, 0, config_next::keep_locked},
        {"split head after garbage", {junk + Bytes{0xAA, 0xBB, 0x77, 0xAA, 4}}, {}, 25, config_next::keep_locked},
        {"payload past the buffer's end", {Bytes(UNX_BUF_SIZE - 18, 0) + unx_record(2, Bytes(6, 0), 0)}, {}, int(UNX_BUF_SIZE) - 12,
         config_next::unlock},
    };
    for (const auto& c : cases) {
        usbgun_srv.held = 0;
        calls.clear();
        config_next last = config_next::unlock;
        for (const Bytes& r : c.reads)
            last = feed(r);
        EXPECT_TRUE(calls == c.calls && usbgun_srv.held == c.held && last == c.last) << c.what << " held " << usbgun_srv.held;
    }
    ScanGunRouteInfo_t r{};
    int t = 0;
    ScanGunConfigName_t n{};
    UsbScanGunGetRouteInfo(&r);
    UsbScanGunGetDataType(&t);
    UsbScanGunGetConfDesc(&n);
    EXPECT_EQ(std::vector<int>({r.nRouteMode, r.nFixedScreenID, t, n.index}), std::vector<int>({1, 2, 1, 1}));
    EXPECT_STREQ(n.name, "Scanner");
    EXPECT_EQ(count_text(log(), "Unknow function index...\r\n"), 1);
    EXPECT_EQ(count_text(log(), "runs past the receive buffer, dropped.\r\n"), 1);
    // Dumps leave out the last byte: a 20-byte route record shows 19.
    EXPECT_EQ(count_text(log(), "[020]Data:aabb77aa040000000800000001000000020000\r\n"), 2);
}

// The service's own threads over a real socket.
class ScannerService : public ScannerServer {
protected:
    void SetUp() override
    {
        ScannerServer::SetUp();
        std::thread init([] { EXPECT_EQ(UsbScanGunSrvInit({on_config, nullptr}), 0); });
        client_ = connect();
        init.join();
        ASSERT_GT(client_, 0);
    }
    static int connect()
    {
        int fd = -1;
        for (int tries = 0; fd <= 0 && tries < 250; ++tries)
            if ((fd = unix_client_open(SCANNER_SOCKET_PATH)) <= 0)
                usleep(20000);
        return fd;
    }

    int client_ = -1;
};

TEST_F(ScannerService, OnlyTheNewestClientIsServedAndNoneStallsTheWriters)
{
    const int second = connect();
    ASSERT_TRUE(wait_for_file_text(root_.at("/tmp/scan-server.txt"), "Usb scan unix client connected...\r\n", 2));
    const uint8_t scan[] = {'4', '2'};
    EXPECT_EQ(UsbScanGunWriteData(0, eKbdData, scan, 2), 38);
    EXPECT_EQ(receive(second).size(), 38U);
    uint8_t byte;
    EXPECT_TRUE(unix_socket_wait(client_, 1000) == 1 && read(client_, &byte, 1) == 0);  // the first is closed
    // The second never reads: a write that does not fit times out, short.
    const std::vector<uint8_t> big(4 << 20);
    EXPECT_EQ(UsbScanGunWriteData(0, eKbdData, big.data(), static_cast<unsigned>(big.size())), -2);
}

}  // namespace
