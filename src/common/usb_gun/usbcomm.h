// The scanner service's bridge to the rest of the daemon.
#pragma once

// Hands event node event_index back to the daemon's own input handling; 0.
int AddEventToTactord(int event_index);
// Takes event node event_index away from the daemon's input handling, for
// the scanner service to read alone; 0.
int RemoveEventFromTactord(int event_index);
