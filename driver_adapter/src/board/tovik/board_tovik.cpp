#include "board/tovik/board_tovik.h"

#include <atomic>
#include <cstdio>

#include "board/common/board.h"
#include "board/tovik/board_tovik_internal.h"
#include "common/send_log.h"
#include "common/signal_capture.h"
#include "func/device/drv_setup.h"
#include "func/sound/sound.h"

bridge_ports_speed bridge_board_ports_speed{};

const std::array<gpio_bank_t, GPIO_BANK_COUNT> gpio_map = {{
    {0, GPIO_CHIP_SPI_BRIDGE},
    {1, GPIO_CHIP_SPI_BRIDGE},
    {2, GPIO_CHIP_SPI_BRIDGE},
    {3, GPIO_CHIP_MCP23017},
    {4, GPIO_CHIP_MCP23017},
    {5, GPIO_CHIP_MCP23017},
    {6, GPIO_CHIP_MCP23017},
    {7, GPIO_CHIP_MCP23017},
    {8, GPIO_CHIP_MCP23017},
}};

namespace {

constexpr bridge_ports_speed BRIDGE_PORTS = {1, 2, 3, 19, 129, 12000000};

drv_device_t* setup_spi_bridge()
{
    bridge_board_ports_speed = BRIDGE_PORTS;
    const bridge_ports_speed& s = bridge_board_ports_speed;
    return Spi_Bridge_Setup("Spi_Bridge", s.uart_bridge_port1, s.uart_bridge_port2,
                            s.uart_bridge_port3, s.uart_bridge_port4, s.vir_bridge_port,
                            s.spi_bridge_speed, 0);
}

struct board_step {
    drv_device_t* (*setup)();
    const char* fail_msg;  // null: the failure is printed on standard output
};

// The devices in the order they are set up.
constexpr std::array<board_step, BOARD_SETUP_STEPS> BOARD_STEPS = {{
    {[] { return SoundSetup("wavaudio sound", nullptr, 2); },
     "%s:%d:%s(): Setup sound frontboard failed.\n"},
    {[] {
         return SensorSetup("lightsensor",
                            "/sys/devices/platform/omap/omap_i2c.2/i2c-2/2-0044/ALS_count", 2);
     },
     "%s:%d:%s(): Setup lightsensor failed.\n"},
    {[] { return PowerBoardSetup("IMC_powerboard", 0); },
     "%s:%d:%s(): Setup IMC_powerboard module failed.\n"},
    {[] { return PowerManageSetup("IMC_pw_manager", 1); },
     "%s:%d:%s(): Setup IMC power manager module failed.\n"},
    {[] { return UartSetup("spi bridge uart", "/dev/spidev2.0", 1); },
     "%s:%d:%s(): Setup spi bridge uart failed.\n"},
    {[] { return UartSetup("serial uart", nullptr, 0); }, "%s:%d:%s(): Setup serial uart failed.\n"},
    {[] {
         return Screen_Setup("tovik_backlight_screen",
                             "/sys/devices/platform/omap/omap_i2c.3/i2c-3/3-0026/Bvalue", 4);
     },
     "%s:%d:%s(): Setup tovik screen backlight failed.\n"},
    {[] { return RtcSetup("tovik_rtc", "/dev/i2c-3", 1); }, "%s:%d:%s(): Setup ISL1208 RTC failed.\n"},
    {[] { return System_Setup("tovik_sys", nullptr, 1); }, "%s:%d:%s(): Setup System failed.\n"},
    {[] { return WifiSetup(1); }, "%s:%d:%s(): Setup WifiSetup failed.\n"},
    {[] { return utility_setup(0); }, "%s:%d:%s(): utility_setup failed.\n"},
    {[] { return LedSetup("Alarm_lamp", "/sys/devices/platform/omap/omap_i2c.2/i2c-2/2-0040/", 1); },
     "%s:%d:%s(): Alarm lamp setup failed.\n"},
    {[] { return MachConfSetup("tovik_eeprom", 0); },
     "%s:%d:%s(): read eeprom config setup failed.\n"},
    {[] { return USBSetup("USB_state", 0); }, "%s:%d:%s(): get usb state setup failed.\n"},
    {setup_spi_bridge, nullptr},
    {[] { return SsdSetup(2); }, "%s:%d:%s(): get emmc health setup failed.\n"},
    {[] { return EepromSetup("tovik_24xx256", "/dev/spidev1.0", 84, 4); },
     "%s:%d:%s(): get e2p setup failed.\n"},
}};

std::atomic<int> g_fail_step{0};

}  // namespace

void board_tovik_fail_step(int step)
{
    g_fail_step.store(step, std::memory_order_relaxed);
}

int DrvBoardSetup()
{
    send_log(DRV_LOG_INFO, "%s:%d:%s(): tovik driver adapter builddate:%s %s\n", DRV_POS, __DATE__,
             __TIME__);

    pSignalAddress = BOARD_BACKTRACE_FILE;
    Signal_InitCapture();

    const int fail_step = g_fail_step.load(std::memory_order_relaxed);
    for (int i = 0; i < BOARD_SETUP_STEPS; ++i) {
        const board_step& step = BOARD_STEPS[i];
        const drv_device_t* dev = i + 1 == fail_step ? nullptr : step.setup();
        if (dev != nullptr)
            continue;
        if (step.fail_msg == nullptr) {
            // No line feed follows; flush so the text is not held back.
            std::fputs("Setup Spi_Bridge failed.", stdout);
            std::fflush(stdout);
        } else {
            send_log(DRV_LOG_ERR, step.fail_msg, DRV_POS);
        }
        return 0;
    }
    return 1;
}
