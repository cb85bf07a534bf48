#include "common/multi_config.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/log.h"
#include "common/multi_config_internal.h"

std::array<_device_seat, DEVICE_SEAT_MAX> device_seats{};
std::array<_device_seat, OUTPUT_SEAT_MAX> output_seats{};
std::array<_DeviceMatchRec, TERMINAL_MAX> terminals{};

namespace {

constexpr int LINE_BUF = CONFIG_LINE_BUF;
// fgets limit: at most 98 characters of a line are seen, the rest of a longer
// line is read as the next line.
constexpr int LINE_LIMIT = 99;

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

void trim_string(char* s)
{
    std::size_t len = std::strlen(s);
    while (len > 0 && (is_blank(s[len - 1]) || s[len - 1] == '\n' || s[len - 1] == '\r'))
        s[--len] = '\0';
    std::size_t start = 0;
    while (is_blank(s[start]))
        ++start;
    if (start > 0)
        std::memmove(s, s + start, len - start + 1);
}

bool is_comment_or_empty(const char* s)
{
    return s[0] == '\0' || s[0] == '#';
}

// Splits a trimmed line in place: the key is the first run of non-blank
// characters, the value starts at the next non-blank character and runs to
// the end of the line. Returns false when the line has no value.
bool get_key_and_value(char* line, char** key, char** value)
{
    char* p = line;
    while (*p != '\0' && !is_blank(*p))
        ++p;
    *key = line;
    if (*p == '\0')
        return false;
    *p++ = '\0';
    while (is_blank(*p))
        ++p;
    if (*p == '\0')
        return false;
    *value = p;
    return true;
}

SectionType_e is_start_section(char* line)
{
    char* key = nullptr;
    char* value = nullptr;
    // The line is split in place; keep a copy for the format-error message.
    char whole[LINE_BUF];
    std::snprintf(whole, sizeof whole, "%s", line);
    if (!get_key_and_value(line, &key, &value)) {
        TLOG(LEVEL_ERROR, "Format error : %s\n", whole);
        return SECTION_NONE;
    }
    if (std::strcmp(key, "StartSection") != 0)
        return SECTION_NONE;
    if (std::strcmp(value, "\"Terminal\"") == 0)
        return TERMINAL_S;
    if (std::strcmp(value, "\"Mode\"") == 0)
        return MODE_S;
    if (std::strcmp(value, "\"Input\"") == 0)
        return INPUT_S;
    if (std::strcmp(value, "\"Output\"") == 0)
        return OUTPUT_S;
    TLOG(LEVEL_ERROR, "parse error section %s is unsurpport\n", value);
    return SECTION_NONE;
}

template <std::size_t N>
bool add_seat_row(std::array<_device_seat, N>& table, const char* path, const char* seat)
{
    for (auto& row : table) {
        if (row.syspath != nullptr)
            continue;
        row.syspath = strdup(path);
        if (row.syspath == nullptr)
            return false;
        row.seat = static_cast<int>(std::strtol(seat, nullptr, 10));
        TLOG(LEVEL_DEBUG, "path:%s----seat:%d\n", row.syspath, row.seat);
        return true;
    }
    // Rows beyond the table's capacity make the file invalid.
    return false;
}

// Handles one line inside a section; false aborts the file.
bool handle_section_line(SectionType_e type, char* line, _DeviceMatchRec& terminal)
{
    char* key = nullptr;
    char* value = nullptr;
    if (!get_key_and_value(line, &key, &value))
        return false;
    switch (type) {
    case TERMINAL_S:
        if (std::strcmp(key, "Screen") == 0) {
            const long screen = std::strtol(value, nullptr, 10);
            // Screens index the three-entry terminal table.
            if (screen < 0 || screen >= TERMINAL_MAX)
                return false;
            terminal.screenNum = static_cast<int>(screen);
        } else if (std::strcmp(key, "InputDevice") == 0) {
            if (terminal.inputCount >= TERMINAL_INPUT_MAX)
                return false;
            terminal.input[terminal.inputCount++] = static_cast<int>(std::strtol(value, nullptr, 10));
        }
        return true;
    case MODE_S:
        if (std::strcmp(key, "ScreenNum") == 0)
            [[maybe_unused]] long screens = std::strtol(value, nullptr, 10);  // read, not used
        return true;
    case INPUT_S:
        return add_seat_row(device_seats, key, value);
    case OUTPUT_S:
        return add_seat_row(output_seats, key, value);
    default:
        return true;
    }
}

config_stop_s stop;
int lines_done = 0;  // lines read to their end

// fgets with the reading position kept in stop.
char* read_line(char* line, FILE* fp)
{
    char* got = std::fgets(line, LINE_LIMIT, fp);
    if (got == nullptr)
        return nullptr;
    stop.line = lines_done + 1;
    if (std::strchr(line, '\n') != nullptr)
        ++lines_done;
    return got;
}

void keep_text(const char* line)
{
    std::snprintf(stop.text.data(), stop.text.size(), "%s", line);
}

int abort_file(FILE* fp)
{
    TLOG(LEVEL_ERROR, "file error!\n");
    std::fclose(fp);
    release_seat_rows();
    print_termial_seat();
    return -1;
}

}  // namespace

int config_init(const char* path)
{
    FILE* fp = path != nullptr ? std::fopen(path, "r") : nullptr;
    if (fp == nullptr) {
        TLOG(LEVEL_ERROR, "open file %s failed\n", path != nullptr ? path : "(null)");
        return -1;
    }

    char line[LINE_BUF];
    _DeviceMatchRec terminal{};
    stop = {};
    lines_done = 0;
    while (read_line(line, fp) != nullptr) {
        trim_string(line);
        keep_text(line);
        if (is_comment_or_empty(line))
            continue;
        const SectionType_e type = is_start_section(line);
        if (type == SECTION_NONE)
            continue;

        stop.section_line = stop.line;
        for (;;) {
            if (read_line(line, fp) == nullptr) {
                stop.at_end = true;
                return abort_file(fp);  // the file ends inside the section
            }
            trim_string(line);
            keep_text(line);
            if (!is_comment_or_empty(line)) {
                if (std::strstr(line, "EndSection") != nullptr)
                    break;
                if (!handle_section_line(type, line, terminal))
                    return abort_file(fp);
            }
            if (std::feof(fp)) {
                stop.at_end = true;
                return abort_file(fp);
            }
        }
        stop.section_line = 0;
        if (type == TERMINAL_S) {
            terminals[terminal.screenNum] = terminal;
            terminal = {};
        }
    }
    std::fclose(fp);
    print_termial_seat();
    return 0;
}

const config_stop_s& config_last_stop()
{
    return stop;
}

int get_device_seat(const char* syspath)
{
    if (syspath == nullptr)
        return -1;
    for (const auto& row : device_seats) {
        if (row.syspath == nullptr)
            break;
        if (std::strncmp(row.syspath, syspath, std::strlen(row.syspath)) == 0)
            return row.seat;
    }
    return -1;
}

const char* get_seat_syspath(int seat)
{
    for (const auto& row : device_seats) {
        if (row.syspath == nullptr)
            break;
        if (row.seat == seat)
            return row.syspath;
    }
    return nullptr;
}

int get_input_conf_display(int seat)
{
    for (const auto& terminal : terminals) {
        for (int i = 0; i < terminal.inputCount && i < TERMINAL_INPUT_MAX; ++i) {
            if (terminal.input[i] == seat)
                return terminal.screenNum;
        }
    }
    return 0;
}

void print_termial_seat()
{
    for (int t = 0; t < TERMINAL_MAX; ++t) {
        for (int i = 0; i < terminals[t].inputCount && i < TERMINAL_INPUT_MAX; ++i) {
            if (i == 0)
                TLOG(LEVEL_DEBUG, "screen:%d ______ %d\n", t, terminals[t].input[i]);
            else
                TLOG(LEVEL_DEBUG, "         |_____ %d\n", terminals[t].input[i]);
        }
    }
}

namespace {

template <std::size_t N>
void release_rows(std::array<_device_seat, N>& table)
{
    for (auto& row : table) {
        std::free(row.syspath);
        row = {};
    }
}

}  // namespace

void release_seat_rows()
{
    release_rows(device_seats);
    release_rows(output_seats);
}
