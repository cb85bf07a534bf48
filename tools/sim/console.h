// The simulated panel's prompt on a terminal: line editing and a history
// kept across sessions (GNU readline), and the transcript's lines printed
// above the line being typed rather than through it.
#pragma once

#include <csignal>

#include "sim/commands.h"
#include "sim/transcript.h"

namespace emul {

// Reads and runs commands until "quit", the end of input or interrupted
// being set (by a signal handler).
void run_console(Interpreter& interpreter, Transcript& transcript, const volatile std::sig_atomic_t& interrupted);

}  // namespace emul
