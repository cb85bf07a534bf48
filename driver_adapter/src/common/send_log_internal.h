// Test seam of the adapter logger.
#pragma once

// While a sink is set, messages go to it (already formatted and cut) instead
// of the network. Null restores the network.
using send_log_sink = void (*)(int level, const char* text);
void send_log_set_sink(send_log_sink sink);
