// Characters and the keys that type them on a US keyboard: what the
// simulated panel types, and what it reads back from a keyboard-wedge
// scanner's records.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/tactord_types.h"

namespace emul {

struct Stroke {
    uint16_t code;
    bool shift;
};

// Letters, digits, space, '-', '.', '/' and '\n' (Enter).
std::optional<Stroke> stroke_for(char c);
std::optional<char> char_for(uint16_t code, bool shift);

// The key frames (each event with its SYN_REPORT) that type text; nullopt
// when a character has no key, with that character in bad.
std::optional<std::vector<tactord::input_event>> typing_frames(const std::string& text, char& bad);

}  // namespace emul
