// The scanner client library: records taken into its ring across reads, the ring's bounds, the
// configuration records it writes, and one connection per process.
#include "common/usb_gun/usbgun_c.h"

#include "common/usb_gun/usbgun_c_internal.h"
#include "support/unit_common.h"

namespace {

int lists_seen = 0;
int on_list(uint8_t* data, int len)
{
    lists_seen += len == static_cast<int>(sizeof(UsbDevInfo_t)) && data == reinterpret_cast<uint8_t*>(&usbgun_client.usbinfo);
    return 0;
}

// A scan record as the service sends it (the head's CRCs are not looked at).
Bytes scan_record(const std::string& scan)
{
    return unx_record(1, words({0x55AA55AA, 0, 1, uint32_t(scan.size()), 0, 0}) + Bytes(scan.begin(), scan.end()));
}

class ScannerClient : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(usblog_init_log("/tmp/scan-client.txt"), 0);
        usbgun_client.cb = {on_list, nullptr};
    }
    int logged(const std::string& line) const { return root_.count_in("/tmp/scan-client.txt", line); }
    static void receive(const Bytes& bytes)
    {
        std::copy(bytes.begin(), bytes.end(), usbgun_client.buf + usbgun_client.held);
        usbgun_c_take(static_cast<ssize_t>(bytes.size()));
    }
    static std::string read(int len = RING_SIZE)
    {
        std::string out(RING_SIZE, '\0');
        out.resize(static_cast<std::size_t>(std::max(UsbGunRead(reinterpret_cast<uint8_t*>(out.data()), len), 0)));
        return out;
    }
    ScratchRoot root_;
};

TEST_F(ScannerClient, ScansLandInTheRingHeadFirstAndListsReachTheCallback)
{
    const Bytes first = scan_record("0123456789");
    receive(Bytes(first.begin(), first.begin() + 7));  // inside the head
    receive(Bytes(first.begin() + 7, first.end()) + scan_record("abc"));
    receive({});  // the second record waited for the next round
    EXPECT_EQ(ring_filled(usbgun_client.rb), 34 + 27);  // heads (12 bytes) left out
    const std::string got = read(40);
    EXPECT_EQ(Bytes(got.begin(), got.begin() + 34), Bytes(first.begin() + 12, first.end()));
    EXPECT_EQ(read().size(), 21U);  // a read may end inside a record
    EXPECT_EQ(logged("UsbGunReadFun event comming...\r\n"), 2);
    EXPECT_EQ(logged("Read len:40,real len:40 success...\r\n"), 1);

    UsbDevInfo_t list{};
    list.usbdev_total_count = 2;
    const Bytes rec = unx_record(0, Bytes(reinterpret_cast<const uint8_t*>(&list), reinterpret_cast<const uint8_t*>(&list + 1)));
    receive(Bytes(rec.begin(), rec.begin() + 9000));
    receive(Bytes(rec.begin() + 9000, rec.end()));
    UsbDevInfo_t copy{};
    EXPECT_TRUE(lists_seen == 1 && UsbDevInfoGet(&copy) == 0 && copy.usbdev_total_count == 2);
}

TEST_F(ScannerClient, RingWrapsOverwritesUnreadBytesUnlessFullAndReadsAreChecked)
{
    uint8_t buf[8];
    EXPECT_TRUE(UsbGunRead(buf, 8) == 0 && read_file(root_.at("/tmp/scan-client.txt")).empty());  // not logged
    EXPECT_TRUE(UsbGunRead(buf, RING_SIZE + 1) == -1 && UsbGunRead(nullptr, 8) == -1);
    EXPECT_EQ(logged("Paramer is error.\r\n"), 2);
    RingBuffer_t& rb = usbgun_client.rb;
    rb.pIn = rb.pOut = RING_SIZE - 10;
    receive(scan_record("wrapped!"));  // 32 bytes across the end
    EXPECT_EQ(read().substr(24), "wrapped!");
    EXPECT_TRUE(rb.pIn == 22 && rb.pOut == 22);
    rb.pOut = 100;
    rb.pIn = 98;  // one byte short of full: written all the same, over unread bytes
    receive(scan_record("over"));
    EXPECT_EQ(rb.pIn, 98 + 28);
    rb.pIn = 99;  // full: dropped
    receive(scan_record("lost"));
    EXPECT_EQ(rb.pIn, 99);
}

// Their arrival at the service is pinned with the C client; here the bytes, the cut name and the lines.
TEST_F(ScannerClient, SendersWriteTheThreeConfigurationRecordsAndASecondInitKeepsTheFirstConnection)
{
    EXPECT_TRUE(UsbGunConfigSet("Scanner", 1) == 0 && UsbGunDataTypeSet(1) == 0 && UsbGunSetRouteInfo(1, 2) == 0);
    EXPECT_TRUE(logged("] Unx socket handle not init.\r\n") == 2 && logged("] unx socket handle not init.\r\n") == 1);
    UnitPeer service;
    usbgun_client.unx_fd = service.daemon;
    const std::string long_name(300, 'n');
    EXPECT_TRUE(UsbGunConfigSet(long_name.c_str(), 1) == 0 && UsbGunDataTypeSet(1) == 0 && UsbGunSetRouteInfo(1, 2) == 0);
    EXPECT_EQ(service.drain(), unx_record(2, name_payload(1, long_name)) + unx_record(3, words({1})) + unx_record(4, words({1, 2})));
    for (const std::string& line : {"Name:" + std::string(255, 'n') + ",bOn:1 success...\r\n",
                                    std::string("Data type 1 success...\r\n"),
                                    std::string("nRouteMode:1 nFixedScreen:2 success...\r\n")})
        EXPECT_EQ(logged(line), 1) << line;

    ASSERT_GT(unix_server_open(SCANNER_SOCKET_PATH), 0);
    ASSERT_EQ(UsbGunInit({on_list, nullptr}), 0);
    const int fd = usbgun_client.unx_fd.load();
    EXPECT_GT(fd, 0);
    EXPECT_TRUE(UsbGunInit({nullptr, nullptr}) == 0 && usbgun_client.unx_fd.load() == fd);
    EXPECT_EQ(logged("Client Initation success...\r\n"), 2);
}

}  // namespace
