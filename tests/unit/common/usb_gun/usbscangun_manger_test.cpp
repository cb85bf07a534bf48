#include "common/usb_gun/usbscangun_manger.h"

#include <gtest/gtest.h>

#include <cstring>

#include "arm/hot_plug_internal.h"
#include "common/usb_gun/usbgun_s_internal.h"
#include "common/usb_gun/usbinfo_internal.h"
#include "common/usb_gun/usbkbd_scanner_internal.h"
#include "common/usb_gun/usblog.h"
#include "common/usb_gun/usbscangun_manger_internal.h"
#include "support/scratch_root.h"

namespace {

bool lent(int event)
{
    return TactordCtrl.evtctrl[event].bScanCtrl != 0;
}
bool declared(int event)
{
    for (const auto& slot : usbkbd_ctrl.kbd)
        if (slot.bOn != 0 && slot.index == event)
            return true;
    return false;
}

TEST(ScannerManager, ConfigurationIsAppliedOncePerRecord)
{
    testsupport::ScratchRoot root;
    ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
    usbgun_srv.routeinfo = {eModeFixed, eScreenOrvel};
    usbgun_srv.config.datType = eCdcData;
    for (int index : {3, 4, 7})
        EXPECT_EQ(UsbScanGunConfEvent(index), 0);
    usbscangun_apply_pending();
    EXPECT_EQ(usbscangun_mgr.routeinfo.nRouteMode.load(), eModeFixed);
    EXPECT_EQ(usbscangun_mgr.routeinfo.nFixedScreenID.load(), eScreenOrvel);
    EXPECT_EQ(usbscangun_mgr.conf.datType, eCdcData);
    usbgun_srv.routeinfo = {};
    usbscangun_apply_pending();  // no new record: nothing taken
    EXPECT_EQ(usbscangun_mgr.routeinfo.nRouteMode.load(), eModeFixed);
    const std::string log = testsupport::read_file(root.at("/tmp/scan-server.txt"));
    EXPECT_EQ(testsupport::count_text(log, "UsbGunDataTypeSetFun event comming...\r\n"), 1);
    EXPECT_EQ(testsupport::count_text(log, "UsbGunRouteInfoSetFun event comming...\r\n"), 1);
    EXPECT_EQ(testsupport::count_text(log, " event comming"), 2);  // index 7 is ignored
}

TEST(ScannerManager, NamedScannersAreLentToTheReaderAndGivenBack)
{
    // The inventory knows two scanners and a keyboard, whose nodes the
    // hot-plug monitor holds.
    UsbDevInfo_t& info = usbdev_ctrl.usbinfo;
    for (const auto& [name, event] : {std::pair{"Scanner Device", 3}, {"Keyboard", 1}, {"ScannerX", 5}}) {
        UsbDev_Desc_t& d = info.usb_desc[info.usbdev_total_count++];
        std::strcpy(d.devname, name);
        d.event_index = event;
        TactordCtrl.evtctrl[event].evt_index = event;
    }
    const auto client_names = [](int on, const char* name) {
        usbgun_srv.config.confName.index = on;
        std::snprintf(usbgun_srv.config.confName.name, sizeof usbgun_srv.config.confName.name, "%s", name);
        UsbScanGunConfEvent(UsbGunNameSetFun);
        usbscangun_apply_pending();
    };
    client_names(1, "Scanner");
    EXPECT_TRUE(lent(3) && declared(3) && lent(5) && declared(5));
    EXPECT_FALSE(lent(1) || declared(1));
    client_names(0, "Scanner Dev");
    EXPECT_FALSE(lent(3) || declared(3));
    EXPECT_TRUE(lent(5) && declared(5));
    client_names(2, "ScannerX");  // neither on nor off
    EXPECT_TRUE(lent(5) && declared(5));
}

}  // namespace
