// The daemon's entry: options, banner, signal catching, start-up order and
// the select loop over the monitor list.
#pragma once

#include <atomic>
#include <cstdio>

inline constexpr const char* TACTORD_VERSION = "17.0221.1137";

const char* tactordVersion();
void print_my_version();
void signal_initcapture();
void signal_handler(int sig);

struct tactord_options {
    int init_ipc = 1;      // -i: 0 keeps the two remote-screen clients off
    bool help = false;     // -h, --help: print the usage and exit
    bool version = false;  // --version: print the version and exit
};
// Applies -d, -p and -t as they are scanned; returns what main keeps itself.
// Arguments it does not know are skipped, each with one warning line on
// warnings.
tactord_options parse_options(int argc, char** argv, FILE* warnings = stderr);
// The command line's summary, for -h.
void print_usage(FILE* out);

// Incremented once per loop pass; watched by the liveness watchdog.
extern std::atomic<unsigned int> nWatdogReset;

// The longest the waits of one dispatch may last together, and those of the
// housekeeping before it (see IoWaitLimit): however the clients behave, a
// pass lasts little more than the two together, about 250 ms.
inline constexpr int MAIN_LOOP_WAIT_BOUND_MS = 200;
inline constexpr int HOUSEKEEPING_WAIT_BOUND_MS = 50;

// One pass of the main loop (increment, housekeeping of clients, build the
// set, select with a one-second cap, dispatch). max_fd only ever grows.
void main_loop_pass(int* max_fd);

// Start-up in its fixed order, then the loop; never returns.
[[noreturn]] void input_manager_main(int argc, char** argv);
