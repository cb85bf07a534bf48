// Readiness and keep-alive notifications to a service manager that asks for
// them (systemd's Type=notify services): the manager names a Unix datagram
// socket in $NOTIFY_SOCKET, a path or, with a leading '@', a name in the
// abstract namespace, and each notification is one datagram of
// "NAME=VALUE" lines. Without the variable nothing is sent.
#pragma once

// Sends state (for example "READY=1") to $NOTIFY_SOCKET without blocking.
// Returns 1 when sent, 0 when no manager asked for notifications, -1 when
// the socket cannot be reached (nothing sent).
int service_notify(const char* state);

// Microseconds between two "WATCHDOG=1": half of $WATCHDOG_USEC when the
// manager expects keep-alives from this process ($WATCHDOG_PID, when set,
// must name it), else 0.
long long service_watchdog_interval_us();
