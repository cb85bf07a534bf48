// Logger internals visible to its tests.
#pragma once

#include <cstdio>

extern int gs_log_level;
extern int gs_log_place;
extern FILE* log_file;

// Where syslog-mode lines go, already finished: syslog(priority, "%s", line)
// unless a test replaces it.
using syslog_sink_fn = void (*)(int priority, const char* line);
extern syslog_sink_fn log_syslog_sink;
