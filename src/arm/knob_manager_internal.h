// Knob receiver state visible to its tests.
#pragma once

#include <array>
#include <cstdint>

// A package begun in one read and completed by the next. Main thread only.
struct KnobPartial {
    std::array<uint8_t, 3> bytes{};
    int count = 0;
    bool held = false;
};
extern KnobPartial knob_partial;
