// The display-client side of the control socket: register a connection for a
// screen and print every record that arrives, decoded, one line each.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>

#include "client/control_client.h"

namespace tools {

inline constexpr std::chrono::seconds kHeldAfter{10};

struct MonitorOptions {
    int screen = 0;
    bool json = false;        // one JSON object per record
    bool with_time = false;   // text lines start with the record's time stamp
    long count = -1;          // stop after this many records (-1: no limit)
    std::chrono::milliseconds duration{0};  // stop after this long (0: no limit)
    std::FILE* hint = nullptr;          // where to say that nothing arrives (null: nowhere)
    const char* hint_name = "tactord-events";  // the program saying it
    // Silence after which a display client is told the screen may be held.
    std::chrono::milliseconds hint_after{kHeldAfter};
};
// What to tell a display client that receives nothing: tactord gives a
// screen's records to one client and ignores another's registration.
std::string screen_held_hint(int screen);

// Registers conn for opts.screen and follows a fence, whose reply (the
// current mode) is the first record printed: it shows that the daemon has
// handled the registration. Then prints each event and reply as it comes;
// when no event has come opts.hint_after after the registration, says to
// opts.hint that another client may hold the screen.
// Returns 0 when a limit was reached, 1 when the daemon closed the
// connection or a write failed.
int run_monitor(ControlConnection& conn, const MonitorOptions& opts, std::FILE* out);

}  // namespace tools
