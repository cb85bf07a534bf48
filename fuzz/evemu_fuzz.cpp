// Feeds the recording parser arbitrary text, then builds the device its
// header describes and cuts its events into frames, as the simulated panel
// does with a recording it replays or plugs in.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sim/evemu.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    emul::Recording rec;
    std::string error;
    emul::parse_recording(std::string_view(reinterpret_cast<const char*>(data), size), rec, error);
    const emul::TestDevice dev = rec.device("usb-musb-hdrc.0-1.4/input0");
    std::size_t events = 0;
    for (const auto& frame : emul::recording_frames(rec.events))
        events += frame.size();
    // Every event lands in exactly one frame.
    if (events != rec.events.size() || dev.axes.size() != rec.axes.size())
        __builtin_trap();
    return 0;
}
