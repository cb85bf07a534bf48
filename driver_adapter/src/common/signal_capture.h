// The adapter's crash capture: on a crash signal it appends the signal number
// and a backtrace to the file named by pSignalAddress, then lets the signal
// end the process as it would have without the capture.
#pragma once

// Set by the board before Signal_InitCapture; null means no capture file.
extern const char* pSignalAddress;

// Installs the crash handler. Returns 0, or -1 when pSignalAddress is unset
// or a handler could not be installed.
int Signal_InitCapture();
