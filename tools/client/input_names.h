// Names of Linux input event types and codes ("EV_KEY", "KEY_A", "ABS_X"),
// both ways, from the kernel's own list of definitions.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tools {

// "EV_KEY" for 1; null for a type without a name.
const char* event_type_name(uint16_t type);
// "KEY_A" for (EV_KEY, 30); null when the code has no name in that type.
// Where several names share a value, the one that names the code itself is
// chosen (BTN_LEFT, not the range name BTN_MOUSE).
const char* event_code_name(uint16_t type, uint16_t code);

// The type named ("EV_KEY") or given as a number ("1", "0x01").
std::optional<uint16_t> parse_event_type(std::string_view text);
// The code of that type named ("KEY_A", "BTN_LEFT") or given as a number.
std::optional<uint16_t> parse_event_code(uint16_t type, std::string_view text);
// A code name alone ("KEY_A", "REL_X", "ABS_MT_SLOT"): its type and code.
std::optional<std::pair<uint16_t, uint16_t>> parse_code_name(std::string_view text);

}  // namespace tools
