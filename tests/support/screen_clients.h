// Display clients of the unit tests: one socket pair per connected screen, the daemon's end in
// gs_clients; the screen model is reset (lock-key tables filled) now and again at the end.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include "common/tactord_types.h"
#include "support/unit_peer.h"

namespace testsupport {

class ScreenClients {
public:
    explicit ScreenClients(std::vector<int> connect = {0, 1});
    ~ScreenClients();
    ScreenClients(const ScreenClients&) = delete;
    ScreenClients& operator=(const ScreenClients&) = delete;

    // What the screen's client has received so far, as 16-byte events or raw bytes.
    std::vector<tactord::input_event> events(int screen);
    std::vector<uint8_t> bytes(int screen) { return pair_[screen] ? pair_[screen]->drain() : std::vector<uint8_t>{}; }
    int daemon_fd(int screen) const { return pair_[screen] ? pair_[screen]->daemon : -1; }

private:
    std::array<std::unique_ptr<UnitPeer>, 3> pair_;
};

// (type, code, value) of each event, for compact expectations.
struct Ev {
    int type, code, value;
    bool operator==(const Ev&) const = default;
};
using Evs = std::vector<Ev>;
Evs brief(const std::vector<tactord::input_event>& events);
inline std::vector<Ev> operator+(std::vector<Ev> a, const std::vector<Ev>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
inline void PrintTo(const Ev& e, std::ostream* os) { *os << '{' << e.type << ',' << e.code << ',' << e.value << '}'; }

}  // namespace testsupport
