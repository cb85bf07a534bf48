#include "common/usb_gun/usblog.h"

#include "support/unit_common.h"

TEST(ScannerLog, LinesCarryTimeFunctionAndLineAndDumpsLeaveOutTheLastByte)
{
    testsupport::ScratchRoot root;
    EXPECT_EQ(usblog_log_write("f", 1, "lost\r\n"), -1);  // not open yet
    ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
    EXPECT_EQ(usblog_init_log("/tmp/other.txt"), 0);  // once per process
    EXPECT_EQ(usblog_log_write("device_proc", 42, "Insert Scan event%d...\r\n", 3), 0);
    const std::uint8_t data[16] = {0x00, 0x01, 0xab, 0xff, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xee};
    usblog_log_dumpdata(data, 16);
    usblog_log_dumpdata(nullptr, 4);
    usblog_log_dumpdata(data, 0);
    const std::regex lines(R"(^\[\d+\.\d+\]\[device_proc:42\] Insert Scan event3\.\.\.\r\n)"
                           R"(\[\d+\.\d+\]\[usblog_log_dumpdata:\d+\] \[016\]Data:0001abff0405060708090a0b0c0d0e\r\n$)");
    const std::string text = testsupport::read_file(root.at("/tmp/scan-server.txt"));
    EXPECT_TRUE(std::regex_match(text, lines)) << text;
}
