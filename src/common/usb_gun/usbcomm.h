// The scanner service's bridge to the rest of the daemon.
#pragma once

#include <cstdint>

// Hands event node event_index back to the daemon's own input handling; 0.
int AddEventToTactord(int event_index);
// Takes event node event_index away from the daemon's input handling, for
// the scanner service to read alone; 0.
int RemoveEventFromTactord(int event_index);
// The screen with the keyboard focus: 0 main, 1 secondary, 2 the remote
// screen; 3 when no screen has it.
int GetScreenFocusLocation();
// Announces the client's data type to the remote screen: 0, -1 or -2 as the
// remote-screen client's code-type frame.
int UsbScanGunSetIpcCodeType(int type);
// Sends one scan to the remote screen, behind a scan head for slot 2 with
// both CRCs: what the remote-screen client's scan sender returned (len + 48
// when sent), -1 when the buffer cannot be had.
int UsbScanGunWriteIpcData(int datatype, const uint8_t* data, unsigned len);
