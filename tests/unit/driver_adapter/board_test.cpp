// The adapter's start-up: driver classes, this board's devices in order, a failed set-up repeated.
#include "board/common/board.h"

#include "board/tovik/board_tovik.h"
#include "board/tovik/board_tovik_internal.h"
#include "common/signal_capture.h"
#include "func/device/drv_device_internal.h"
#include "support/adapter.h"

// Name, path ("" for none) and variants of this board's devices, in their order.
const std::tuple<const char*, const char*, int, int> BOARD_DEVICES[] = {
    {"wavaudio sound", "", 2, 0},
    {"lightsensor", "/sys/devices/platform/omap/omap_i2c.2/i2c-2/2-0044/ALS_count", 2, 0},
    {"IMC_powerboard", "", 0, 0},
    {"IMC_pw_manager", "", 1, 0},
    {"spi bridge uart", "/dev/spidev2.0", 1, 0},
    {"serial uart", "", 0, 0},
    {"tovik_backlight_screen", "/sys/devices/platform/omap/omap_i2c.3/i2c-3/3-0026/Bvalue", 4, 0},
    {"tovik_rtc", "/dev/i2c-3", 1, 0},
    {"tovik_sys", "", 1, 0},
    {"wifi", "", 1, 0},
    {"utility", "", 0, 0},
    {"Alarm_lamp", "/sys/devices/platform/omap/omap_i2c.2/i2c-2/2-0040/", 1, 0},
    {"tovik_eeprom", "", 0, 0},
    {"USB_state", "", 0, 0},
    {"Spi_Bridge", "", 0, 0},
    {"emmc_health", "", 2, 0},
    {"tovik_24xx256", "/dev/spidev1.0", 84, 4},
};

TEST(BoardSetup, StopsAtTheFirstFailureRepeatsTheWholeSetUpOnTheNextCallAndThenNoMore)
{
    testsupport::AdapterLog log;
    EXPECT_EQ(InitDriverAdapter(5), 0);  // no board here: the light sensor's path is missing
    sem_unlink("/ec_initial_name_sem");  // only the name: the adapter keeps the semaphore
    EXPECT_EQ(drv_device_count(), 1);
    EXPECT_EQ(log.count("board_tovik.cpp:", 3), 1);
    EXPECT_EQ(log.count("DrvBoardSetup(): Setup lightsensor failed.\n", 3), 1);

    drv_set_path_probe([](const char*) { return true; });
    board_tovik_fail_step(10);
    EXPECT_EQ(InitDriverAdapter(5), 0);
    EXPECT_EQ(log.count("DrvBoardSetup(): Setup WifiSetup failed.\n", 3), 1);
    for (int i = 0; const auto& [name, path, variant, variant2] : BOARD_DEVICES)
        EXPECT_EQ(drv_device_find(name) != nullptr, i++ < 9) << name;

    // The SPI bridge's failure goes to standard output only, without a line feed.
    log.take();
    board_tovik_fail_step(15);
    testing::internal::CaptureStdout();
    EXPECT_EQ(InitDriverAdapter(5), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Setup Spi_Bridge failed.");
    EXPECT_EQ(log.count("", 3), 0);
    EXPECT_TRUE(drv_device_find("USB_state") != nullptr && drv_device_find("emmc_health") == nullptr);

    log.take();
    board_tovik_fail_step(0);
    ASSERT_EQ(InitDriverAdapter(5), 1);
    for (const char* part : {"board.cpp:", "InitDriverAdapter(): DriverAdpter Initiated!\n",
                             "DrvBoardSetup(): tovik driver adapter builddate:"})
        EXPECT_EQ(log.count(part, 6), 1) << part;
    EXPECT_EQ(log.count("", 3), 0);
    const std::vector<drv_class> registered = {
        DRV_CLASS_GPIO,   DRV_CLASS_SOUND,        DRV_CLASS_RTC,        DRV_CLASS_SCREEN,      DRV_CLASS_KEYBOARD,
        DRV_CLASS_SYSTEM, DRV_CLASS_POWER_MANAGE, DRV_CLASS_FLASH,      DRV_CLASS_MACH_CONF,   DRV_CLASS_UART,
        DRV_CLASS_LED,    DRV_CLASS_EEPROM,       DRV_CLASS_SENSOR,     DRV_CLASS_POWER_BOARD, DRV_CLASS_SCREEN,
        DRV_CLASS_USB,    DRV_CLASS_LED_ALARM,    DRV_CLASS_DOCK_EEPROM};
    std::array<drv_class, DRV_REGISTRATION_LOG_MAX> seen{};
    EXPECT_EQ(drv_registration_log(seen.data(), DRV_REGISTRATION_LOG_MAX), 64);  // 4 calls x 18, capped
    EXPECT_EQ(std::vector<drv_class>(seen.begin(), seen.begin() + 18), registered);
    EXPECT_NE(ec_init_sem(), nullptr);
    ASSERT_EQ(drv_device_count(), 17);  // set up again, not duplicated
    for (int i = 0; const auto& [name, path, variant, variant2] : BOARD_DEVICES) {
        const drv_device_t* dev = drv_device_at(i++);
        EXPECT_TRUE(std::string(dev->name.data()) == name && std::string(dev->path.data()) == path) << name;
        EXPECT_TRUE(dev->variant == variant && dev->variant2 == variant2) << name;
    }
    const bridge_ports_speed want_ports{1, 2, 3, 19, 129, 12000000};
    EXPECT_EQ(std::memcmp(&drv_device_find("Spi_Bridge")->ports, &want_ports, sizeof(want_ports)), 0);
    EXPECT_EQ(std::memcmp(&bridge_board_ports_speed, &want_ports, sizeof(want_ports)), 0);
    EXPECT_STREQ(pSignalAddress, "/var/log/backtrace.txt");

    log.take();  // once set up, a call returns 1 at once, silently, without setting up again
    board_tovik_fail_step(1);
    EXPECT_EQ(InitDriverAdapter(5), 1);
    EXPECT_TRUE(log.take().empty());
}
