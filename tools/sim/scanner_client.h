// A scanner client inside the simulated panel, on the real client library:
// it declares devices scanners by name, sets the route and shows every
// inventory and scan the daemon's scanner service sends. The service serves
// the newest client only, so a client of one's own started later takes over.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "sim/transcript.h"

namespace emul {

class ScannerClient {
public:
    explicit ScannerClient(Transcript& transcript) : transcript_(transcript) {}
    ~ScannerClient();
    ScannerClient(const ScannerClient&) = delete;
    ScannerClient& operator=(const ScannerClient&) = delete;

    // Connects on first use; then declares the devices whose name begins
    // with name scanners (on) or ordinary input devices again, and sets the
    // route: screen -1 follows the focus, 0 or 1 is fixed. False when the
    // library refused.
    bool configure(const std::string& name, bool on, int screen);

private:
    void read_scans();

    Transcript& transcript_;
    bool connected_ = false;
    std::thread reader_;
    std::atomic<bool> stop_{false};
};

// What a scan's bytes say: a wedge scanner's key records as the characters
// they type, a CDC scanner's bytes as text with control characters escaped.
std::string scan_text(int datatype, const uint8_t* data, std::size_t len);

}  // namespace emul
