// A C program built against the installed client library (header, library
// and pkg-config file) talks to the scanner service's socket server.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "common/usb_gun/usbgun_s.h"
#include "common/usb_gun/usbgun_s_internal.h"
#include "common/usb_gun/usblog.h"
#include "support/scratch_root.h"

namespace {

int on_config(int)
{
    return 0;
}

TEST(ScannerClientLibrary, CProgramBuiltAgainstTheInstalledLibraryTalksToTheService)
{
    testsupport::ScratchRoot root;
    ASSERT_EQ(usblog_init_log("/tmp/scan-server.txt"), 0);
    const std::string stage = root.at("/stage");
    const std::string install = std::string(TACTORD_CMAKE) + " --install " TACTORD_BUILD_DIR " --prefix " + stage +
                                " --component usbgun_c > " + root.at("/install.log") + " 2>&1";
    ASSERT_EQ(std::system(install.c_str()), 0) << testsupport::read_file(root.at("/install.log"));
    const std::string libdir = stage + "/" TACTORD_INSTALL_LIBDIR;
    const std::string build = "export PKG_CONFIG_PATH=" + libdir + "/pkgconfig; " TACTORD_C_COMPILER
                              " -std=c11 -pedantic -Wall -Wextra -Werror " TACTORD_C_SANITIZE " " TACTORD_SOURCE_DIR
                              "/tests/system/usbgun_c_client.c $(pkg-config --cflags --libs usbgun_c) -o " +
                              stage + "/client > " + root.at("/build.log") + " 2>&1";
    ASSERT_EQ(std::system(build.c_str()), 0) << testsupport::read_file(root.at("/build.log"));

    std::thread init([] { EXPECT_EQ(UsbScanGunSrvInit({on_config, nullptr}), 0); });
    const std::string run = "LD_LIBRARY_PATH=" + libdir + " " + stage + "/client";
    FILE* client = popen(run.c_str(), "r");
    ASSERT_NE(client, nullptr);
    init.join();

    // The three configuration records arrive and are stored.
    ScanGunRouteInfo_t route{};
    for (int i = 0; i < 150 && route.nFixedScreenID != eScreenOrvel; ++i) {
        usleep(20000);
        UsbScanGunGetRouteInfo(&route);
    }
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

    std::string out;
    char line[256];
    while (std::fgets(line, sizeof line, client) != nullptr)
        out += line;
    EXPECT_EQ(pclose(client), 0) << out;
    EXPECT_EQ(out, "list 1: 1 Scanner Device\nscan 55aa55aa slot 0 type 1: 0123456789\r\n");
}

}  // namespace
