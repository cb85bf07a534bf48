// A C program built against the installed client library (header, library, pkg-config file) talks to
// the scanner service's socket server.
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "common/usb_gun/usbgun_s.h"
#include "common/usb_gun/usbgun_s_internal.h"
#include "common/usb_gun/usblog.h"
#include "support/remote_link.h"
#include "support/scratch_root.h"
#include "support/shell.h"

namespace {

using testsupport::eventually;
using testsupport::run_command;

int on_config(int) { return 0; }

TEST(ScannerClientLibrary, CProgramBuiltAgainstTheInstalledLibraryTalksToTheService)
{
    testsupport::ScratchRoot root;
    ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
    const std::string stage = root.at("/stage"), libdir = stage + "/" TACTORD_INSTALL_LIBDIR;
    const auto installed =
        run_command(TACTORD_CMAKE " --install " TACTORD_BUILD_DIR " --prefix " + stage + " --component usbgun_c");
    ASSERT_EQ(installed.second, 0) << installed.first;
    const auto built = run_command("export PKG_CONFIG_PATH=" + libdir + "/pkgconfig; " TACTORD_C_COMPILER
                                   " -std=c11 -pedantic -Wall -Wextra -Werror " TACTORD_C_SANITIZE " " TACTORD_SOURCE_DIR
                                   "/tests/system/usbgun_c_client.c $(pkg-config --cflags --libs usbgun_c) -o " +
                                   stage + "/client");
    ASSERT_EQ(built.second, 0) << built.first;

    std::thread init([] { EXPECT_EQ(UsbScanGunSrvInit({on_config, nullptr}), 0); });
    auto client = std::async(std::launch::async, run_command, "LD_LIBRARY_PATH=" + libdir + " " + stage + "/client");
    init.join();

    // The three configuration records arrive and are stored.
    ScanGunRouteInfo_t route{};
    eventually([&] { return UsbScanGunGetRouteInfo(&route), route.nFixedScreenID == eScreenOrvel; });
    ScanGunConfigName_t name{};
    int type = -1;
    UsbScanGunGetConfDesc(&name);
    UsbScanGunGetDataType(&type);
    EXPECT_EQ(std::vector<int>({route.nRouteMode, route.nFixedScreenID, name.index, type}),
              std::vector<int>({eModeFixed, eScreenOrvel, 1, eCdcData}));
    EXPECT_STREQ(name.name, "Test Scanner");

    UsbDevInfo_t list{};
    list.usbdev_total_count = 1;
    std::strcpy(list.usb_desc[0].devname, "Scanner Device");
    EXPECT_EQ(UsbDevInfoWriteData(reinterpret_cast<const uint8_t*>(&list), sizeof list), 0);
    const char scan[] = "0123456789\r";
    EXPECT_EQ(UsbScanGunWriteData(0, eCdcData, reinterpret_cast<const uint8_t*>(scan), 11), 47);
    EXPECT_EQ(client.get(),
              std::make_pair(std::string("list 1: 1 Scanner Device\nscan 55aa55aa slot 0 type 1: 0123456789\r\n"), 0));
}

}  // namespace
