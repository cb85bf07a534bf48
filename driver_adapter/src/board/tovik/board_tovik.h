// This board's device table, bridge speeds and GPIO bank map.
#pragma once

#include <array>
#include <cstdint>

#include "func/device/drv_device.h"

inline constexpr int BOARD_SETUP_STEPS = 17;
inline constexpr const char* BOARD_BACKTRACE_FILE = "/var/log/backtrace.txt";

// Filled by the set-up just before the SPI bridge is created.
extern bridge_ports_speed bridge_board_ports_speed;

// Which chip drives a GPIO bank: banks 0 to 2 sit on the SPI bridge, banks 3
// to 8 on the MCP23017 I/O expanders.
enum gpio_chip_t : uint8_t {
    GPIO_CHIP_SPI_BRIDGE,
    GPIO_CHIP_MCP23017,
};
struct gpio_bank_t {
    int bank;
    gpio_chip_t chip;
};
inline constexpr int GPIO_BANK_COUNT = 9;
extern const std::array<gpio_bank_t, GPIO_BANK_COUNT> gpio_map;
