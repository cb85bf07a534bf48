// Observation point of the event pipeline's entry and its state, for tests.
#pragma once

#include "common/inputevent_handle.h"

// Where ProcessEvdevEvent sends an event.
enum class evdev_event_path {
    cali_capture,  // seat calibrating: raw point captured, then routed
    raw_touch,     // touchscreen delivering raw values: touch parser
    router,        // everything else: the router
};

// Called with every event that reaches ProcessEvdevEvent and the path chosen
// for it; null unless a test sets it.
using evdev_event_observer = void (*)(_InputDev* dev, const tactord::input_event* ev, evdev_event_path path);
extern evdev_event_observer process_evdev_observer;

// Puts the tracking records, the raw-report assembler, the touchscreen
// switches, the controller identification and the remembered virtual-desktop
// point back to their start-up state.
void pipeline_reset();
