#include "client/input_names.h"

#include <linux/input.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace tools {
namespace {

// Rows of the types themselves carry this class.
constexpr int TYPE = -1;

struct NameRow {
    int cls;  // the event type a code belongs to, or TYPE
    unsigned value;
    const char* name;
};

constexpr NameRow kNames[] = {
#include "input_names_table.inc"
};

// Names that start a range of codes rather than name one of them.
constexpr std::array<std::string_view, 7> kRangeNames = {"BTN_MISC",    "BTN_MOUSE", "BTN_JOYSTICK", "BTN_GAMEPAD",
                                                         "BTN_DIGI",    "BTN_WHEEL", "BTN_TRIGGER_HAPPY"};

const char* name_of(int cls, unsigned value)
{
    const char* fallback = nullptr;
    for (const NameRow& row : kNames) {
        if (row.cls != cls || row.value != value)
            continue;
        if (std::find(kRangeNames.begin(), kRangeNames.end(), row.name) == kRangeNames.end())
            return row.name;
        if (fallback == nullptr)
            fallback = row.name;
    }
    return fallback;
}

std::optional<uint16_t> parse_number(std::string_view text)
{
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    unsigned value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (ec != std::errc() || end != text.data() + text.size() || text.empty() || value > 0xFFFF)
        return std::nullopt;
    return static_cast<uint16_t>(value);
}

std::optional<uint16_t> value_of(int cls, std::string_view text)
{
    for (const NameRow& row : kNames)
        if (row.cls == cls && text == row.name)
            return static_cast<uint16_t>(row.value);
    return parse_number(text);
}

}  // namespace

const char* event_type_name(uint16_t type)
{
    return name_of(TYPE, type);
}

const char* event_code_name(uint16_t type, uint16_t code)
{
    return name_of(type, code);
}

std::optional<uint16_t> parse_event_type(std::string_view text)
{
    return value_of(TYPE, text);
}

std::optional<uint16_t> parse_event_code(uint16_t type, std::string_view text)
{
    return value_of(type, text);
}

std::optional<std::pair<uint16_t, uint16_t>> parse_code_name(std::string_view text)
{
    for (const NameRow& row : kNames)
        if (row.cls != TYPE && text == row.name)
            return std::make_pair(static_cast<uint16_t>(row.cls), static_cast<uint16_t>(row.value));
    return std::nullopt;
}

}  // namespace tools
