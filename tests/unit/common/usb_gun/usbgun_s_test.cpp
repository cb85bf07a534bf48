// The scanner service's end of the socket: scan records as written, configuration records taken across
// reads, and only the newest client served.
#include "common/usb_gun/usbgun_s.h"

#include "support/unit_common.h"

namespace {

std::mutex calls_mutex;  // guards calls: the service's own thread reports too
std::vector<int> calls;
int on_config(int func_index)
{
    std::lock_guard<std::mutex> guard(calls_mutex);
    return calls.push_back(func_index), 0;
}

class ScannerServer : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
        usbgun_srv.cb = {on_config, nullptr};
    }
    int logged(const std::string& line) const { return root_.count_in("/tmp/scan-server.txt", line); }
    static Bytes receive(int fd)
    {
        Bytes out(65536);
        out.resize(static_cast<std::size_t>(std::max<ssize_t>(unix_socket_read(fd, out.data(), out.size(), 1000), 0)));
        return out;
    }
    ScratchRoot root_;
};

// The head's CRCs are the encoder's (the protocol document's example); the inventory record's bytes are
// pinned end to end (fault drills, the C client).
TEST_F(ScannerServer, ScanRecordsAreByteExactAndNeedAClientConfigurationRecordsAreReassembled)
{
    const uint8_t three[] = {1, 2, 3};
    EXPECT_TRUE(UsbScanGunWriteData(0, eKbdData, three, 3) == 0 && UsbDevInfoWriteData(three, 3) == 0);
    EXPECT_EQ(logged("unx socket handle not init.\r\n"), 2);
    UnitPeer client;
    usbgun_srv.unx_fd = client.daemon;
    for (const std::string& scan : {std::string(), std::string("0123456789\r"), std::string(300, 'x')}) {
        const auto n = static_cast<unsigned>(scan.size());
        ASSERT_EQ(UsbScanGunWriteData(1, eCdcData, reinterpret_cast<const uint8_t*>(scan.data()), n), int(n + 36));
        const Bytes rec = client.drain();
        ASSERT_EQ(rec.size(), n + 36);
        EXPECT_EQ(Bytes(rec.begin(), rec.begin() + 28), unx_record(1, words({0x55AA55AA, 1, 1, n}), n + 24));
        EXPECT_EQ(std::string(rec.begin() + 36, rec.end()), scan);
    }
    EXPECT_EQ(logged("ScanData write screenslot:1, datetype:1 data len:11, real len:47...\r\n"), 1);
    const Bytes list(sizeof(UsbDevInfo_t), 0x5A);
    EXPECT_TRUE(UsbDevInfoWriteData(list.data(), int(list.size())) == 0 && UsbScanGunWriteData(0, eKbdData, nullptr, 3) == -1);
    EXPECT_EQ(logged("DevInfo write data len:16772, real len:16784...\r\n"), 1);

    const Bytes type = unx_record(3, words({1})), route = unx_record(4, words({1, 2}));
    const Bytes name = unx_record(2, name_payload(1, "Scanner")), junk(20, 7);
    // Per case: the indexes reported, the bytes kept, and whether the thread keeps its lock.
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
        {"leading garbage: the second still follows", {Bytes{9, 9} + type + route, {}}, {3, 4}, 2, config_next::unlock},
        {"unknown index still reported", {unx_record(9, words({0}))}, {9}, 0, config_next::unlock},
        {"garbage", {junk}, {}, 0, config_next::keep_locked},
        {"split head after garbage", {junk + Bytes{0xAA, 0xBB, 0x77, 0xAA, 4}}, {}, 25, config_next::keep_locked},
        {"payload past the buffer's end", {Bytes(UNX_BUF_SIZE - 18, 0) + unx_record(2, Bytes(6, 0), 0)}, {},
         int(UNX_BUF_SIZE) - 12, config_next::unlock},
    };
    for (const auto& c : cases) {
        usbgun_srv.held = 0;
        calls.clear();
        config_next last = config_next::unlock;
        for (const Bytes& r : c.reads) {
            std::copy(r.begin(), r.end(), usbgun_srv.buf + usbgun_srv.held);
            last = usbgun_config_take(static_cast<ssize_t>(r.size()));
        }
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
    EXPECT_EQ(logged("Unknow function index...\r\n"), 1);
    EXPECT_EQ(logged("runs past the receive buffer, dropped.\r\n"), 1);
    EXPECT_EQ(logged("[020]Data:aabb77aa040000000800000001000000020000\r\n"), 2);  // a dump leaves out the last byte
}

TEST_F(ScannerServer, OnlyTheNewestClientIsServedAndNoneStallsTheWriters)
{
    int first = -1, second = -1;
    std::thread init([] { EXPECT_EQ(UsbScanGunSrvInit({on_config, nullptr}), 0); });
    const bool up = eventually([&] { return (first = unix_client_open(SCANNER_SOCKET_PATH)) > 0; }, 5s);
    init.join();
    ASSERT_TRUE(up);
    ASSERT_GT(second = unix_client_open(SCANNER_SOCKET_PATH), 0);
    ASSERT_TRUE(wait_for_file_text(root_.at("/tmp/scan-server.txt"), "Usb scan unix client connected...\r\n", 2));
    const uint8_t scan[] = {'4', '2'};
    EXPECT_EQ(UsbScanGunWriteData(0, eKbdData, scan, 2), 38);
    EXPECT_EQ(receive(second).size(), 38U);
    uint8_t byte;
    EXPECT_TRUE(unix_socket_wait(first, 1000) == 1 && read(first, &byte, 1) == 0);  // the first is closed
    // The second never reads: a write that does not fit times out, short.
    const std::vector<uint8_t> big(4 << 20);
    EXPECT_EQ(UsbScanGunWriteData(0, eKbdData, big.data(), static_cast<unsigned>(big.size())), -2);
}

}  // namespace
