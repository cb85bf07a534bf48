#include "support/screen_clients.h"

#include <csignal>
#include <cstring>

#include "common/inputdevice_manager.h"
#include "common/keyboard_manager.h"
#include "common/screen_manager_internal.h"

namespace testsupport {

ScreenClients::ScreenClients(std::vector<int> connect)
{
    signal(SIGPIPE, SIG_IGN);  // a client end closed early must not end the test
    screen_model_reset();
    input_init();
    for (int s : connect) {
        pair_[s] = std::make_unique<UnitPeer>();
        gs_clients[s].store(pair_[s]->daemon);
    }
}

ScreenClients::~ScreenClients()
{
    for (auto& c : gs_clients)
        c.store(0);
    screen_model_reset();
}

std::vector<tactord::input_event> ScreenClients::events(int screen)
{
    const std::vector<uint8_t> raw = bytes(screen);
    std::vector<tactord::input_event> out(raw.size() / sizeof(tactord::input_event));
    if (!out.empty())
        std::memcpy(out.data(), raw.data(), out.size() * sizeof(tactord::input_event));
    return out;
}

std::vector<Ev> brief(const std::vector<tactord::input_event>& events)
{
    std::vector<Ev> out;
    for (const auto& e : events)
        out.push_back({e.type, e.code, e.value});
    return out;
}

}  // namespace testsupport
