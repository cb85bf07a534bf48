// Scans routed by the client's route to the scanner client or over the agent link (socket pairs).
#include "common/usb_gun/usbscangun_manger.h"

#include "common/usb_gun/usbscangun_manger_internal.h"
#include "support/unit_common.h"

namespace {

void client_sends(uint32_t func, const Bytes& payload)
{
    const Bytes record = unx_record(func, payload);
    std::copy(record.begin(), record.end(), usbgun_srv.buf);
    usbgun_config_take(static_cast<ssize_t>(record.size()));
    usbscangun_apply_pending();
}

TEST(ScannerRouting, ScansFollowTheRouteAndTheDataTypeIsAnnounced)
{
    ScratchRoot root;
    ScreenClients ends({MAIN_SCREEN, IPC_SCREEN});  // the scanner client's and the agent link's
    ASSERT_EQ(usblog_init_log(SCANNER_LOG_PATH), 0);
    usbgun_srv.cb = {UsbScanGunConfEvent, nullptr};
    usbgun_srv.unx_fd.store(ends.daemon_fd(MAIN_SCREEN));
    gs_ipcfd.store(ends.daemon_fd(IPC_SCREEN));
    const auto logged = [&](const char* line) { return count_text(read_file(root.at(SCANNER_LOG_PATH)), line); };

    client_sends(UsbGunDataTypeSetFun, words({eCdcData}));
    EXPECT_EQ(ends.bytes(IPC_SCREEN), words({IPC_PKG_FLAG, 16, 0, MessageType_Scan, USB_SCAN_FLAG, 0, eCdcData}));
    struct Case {
        int mode, fixed, focus;  // focus 3: no screen has it
        int slot;                // -1: refused with the line
        const char* line;
    } const cases[] = {
        {eModeFixed, eScreenOrvel, 0, 2, nullptr},  // whatever has the focus
        {eModeFixed, eScreenMain, 1, 0, nullptr},
        {eModeFixed, eScreenSecondray, 0, 1, nullptr},
        {eModeFixed, 3, 2, -1, "3 screen type not Support...\r\n"},
        {eModeFixed, -1, 0, -1, "-1 screen type not Support...\r\n"},
        {2, eScreenMain, 0, -1, "2 mode Not support\r\n"},
        {eModeFocus, eScreenOrvel, 0, 0, nullptr},
        {eModeFocus, eScreenMain, 2, 2, nullptr},
        {eModeFocus, eScreenMain, 3, -1, "3 screen type not Support...\r\n"},
    };
    uint8_t scan[] = "42\n";
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.mode << "/" << c.fixed << " focus " << c.focus);
        client_sends(UsbGunRouteInfoSetFun, words({uint32_t(c.mode), uint32_t(c.fixed)}));
        for (int s = 0; s < 3; ++s)
            get_screen_info(MAIN_SCREEN)->client[s].focus = s == c.focus;
        const int refused = c.line != nullptr ? logged(c.line) + 2 : 0;
        for (int type : {eKbdData, eCdcData}) {
            const int rc = (type == eKbdData ? UsbScanGunKbdWriteData : UsbScanGunCdcWriteData)(scan, 3);
            const Bytes client = ends.bytes(MAIN_SCREEN), agent = ends.bytes(IPC_SCREEN);
            const Bytes head = words({USBGUN_DAT_FLAG, uint32_t(c.slot), uint32_t(type), 3, calculate_CRC32(scan, 3)});
            const Bytes frame = words({IPC_PKG_FLAG, 39, 0, MessageType_Scan, USB_SCAN_FLAG, 1}) + head +
                                words({calculate_CRC32(head.data(), 20)}) + Bytes(scan, scan + 3);
            EXPECT_EQ(rc, c.slot < 0 ? -1 : c.slot == 2 ? 51 : 39);
            EXPECT_EQ(agent, c.slot == 2 ? frame : Bytes{});
            EXPECT_EQ(client.size() < 32 ? client : Bytes(client.begin() + 12, client.begin() + 32),
                      c.slot == 0 || c.slot == 1 ? head : Bytes{});
        }
        EXPECT_EQ(c.line != nullptr ? logged(c.line) : 0, refused);
    }
    EXPECT_EQ(logged("Ipc write datatye:1, data len:3, real len:51...\r\n"), 2);
    gs_ipcfd.store(0), usbgun_srv.unx_fd.store(0);
}

}  // namespace
