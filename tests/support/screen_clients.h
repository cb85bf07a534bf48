// Stand-ins for the display clients of the unit tests: one socket pair per
// screen, the daemon's end registered in gs_clients, the client's end read
// back here. The screen model is reset and its lock-key tables filled on
// construction, and everything is put back on destruction.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <vector>

#include "common/tactord_types.h"

namespace testsupport {

class ScreenClients {
public:
    // Screens listed in connect get a client; the others stay unconnected.
    explicit ScreenClients(std::vector<int> connect = {0, 1});
    ~ScreenClients();
    ScreenClients(const ScreenClients&) = delete;
    ScreenClients& operator=(const ScreenClients&) = delete;

    // Everything the screen's client has received so far, as 16-byte events.
    std::vector<tactord::input_event> events(int screen);
    // Raw bytes received so far.
    std::vector<uint8_t> bytes(int screen);
    // The daemon's end of the screen's pair (-1 when not connected).
    int daemon_fd(int screen) const { return daemon_[screen]; }

private:
    std::array<int, 3> daemon_{-1, -1, -1};
    std::array<int, 3> client_{-1, -1, -1};
};

// (type, code, value) of each event, for compact expectations.
struct Ev {
    int type;
    int code;
    int value;
    bool operator==(const Ev&) const = default;
};
std::vector<Ev> brief(const std::vector<tactord::input_event>& events);
inline void PrintTo(const Ev& e, std::ostream* os)
{
    *os << '{' << e.type << ',' << e.code << ',' << e.value << '}';
}

}  // namespace testsupport
