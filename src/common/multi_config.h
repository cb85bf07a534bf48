// The seat configuration file "port.conf": USB port prefixes to seats, seats
// to screens.
#pragma once

#include <array>

enum SectionType_e : int {
    SECTION_NONE = 0,
    TERMINAL_S = 1,
    MODE_S = 2,
    INPUT_S = 3,
    OUTPUT_S = 4,
};

inline constexpr int DEVICE_SEAT_MAX = 15;
inline constexpr int OUTPUT_SEAT_MAX = 3;
inline constexpr int TERMINAL_MAX = 3;
inline constexpr int TERMINAL_INPUT_MAX = 15;

struct _device_seat {
    char* syspath;  // heap copy of the port-path prefix, owned by the table
    int seat;
};

struct _DeviceMatchRec {
    int screenNum;
    int inputCount;
    std::array<int, TERMINAL_INPUT_MAX> input;
};

int config_init(const char* path);

inline constexpr int CONFIG_LINE_BUF = 100;
// Where the last config_init stopped reading: the number and trimmed text of
// the last line it read, the line that opened the section in force then (0
// when none), and whether the file ended inside that section. A line longer
// than the parser reads at once counts as one line.
struct config_stop_s {
    int line = 0;
    int section_line = 0;
    bool at_end = false;
    std::array<char, CONFIG_LINE_BUF> text{};
};
const config_stop_s& config_last_stop();
int get_device_seat(const char* syspath);
const char* get_seat_syspath(int seat);
int get_input_conf_display(int seat);
void print_termial_seat();
