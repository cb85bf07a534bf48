// One daemon per root: an exclusive lock on "/var/run/tactord.lock" (under
// $TACTORD_ROOT), taken before the daemon touches a socket or its log and
// held until the process ends. A second daemon would otherwise unlink and
// re-bind the control socket and rotate the first one's log file.
#pragma once

#include <sys/types.h>

inline constexpr const char* INSTANCE_LOCK_PATH = "/var/run/tactord.lock";

// Takes the lock and writes this process's pid into the file. Returns 0 when
// taken (also when already held by this process); 1 when another process
// holds it, *holder then being its pid (0 when it cannot be told, e.g. from
// another pid namespace); -1 when the file cannot be opened or locked
// (errno set).
int take_instance_lock(pid_t* holder);
