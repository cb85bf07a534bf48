// Input recordings in the evemu text format, as a recording tool of the
// distribution writes them: header lines that describe the device ("N:"
// name, "I:" ids, "P:" properties, "B:" capability bits, "A:" axes, "L:" and
// "S:" states), "E: <sec>.<usec> <type> <code> <value>" event lines (type and
// code in hexadecimal) and "#" comments. A recording of a real device can be
// replayed into an emulated one, or describe the device to emulate.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/devices.h"

namespace emul {

struct RecordedEvent {
    uint32_t sec;
    uint32_t usec;
    uint16_t type;
    uint16_t code;
    int32_t value;
};

struct RecordedAxis {
    uint16_t code;
    int32_t minimum;
    int32_t maximum;
    int32_t fuzz;
    int32_t flat;
    int32_t resolution;
};

struct Recording {
    std::string name;                               // "N:"
    std::map<uint16_t, std::vector<uint8_t>> bits;  // "B:" bitmaps by event type (0: the types)
    std::vector<RecordedAxis> axes;                 // "A:"
    std::vector<RecordedEvent> events;              // "E:", in file order

    // True when the header describes a device (name and capability bits).
    bool describes_device() const { return !name.empty() && bits.count(0) != 0; }
    // The device the header describes, on the given physical path.
    TestDevice device(const std::string& phys) const;
};

// Limits that keep a hostile file from taking unbounded memory.
inline constexpr std::size_t kRecordingMaxEvents = 1000000;
inline constexpr std::size_t kRecordingMaxLine = 4096;

// Parses text into out. On failure returns false with error naming the line
// ("line 7: ...") and out holds what came before it.
bool parse_recording(std::string_view text, Recording& out, std::string& error);

// The events cut into frames that each end with a SYN_REPORT (a last frame
// without one is kept as it is).
std::vector<std::vector<RecordedEvent>> recording_frames(const std::vector<RecordedEvent>& events);

}  // namespace emul
