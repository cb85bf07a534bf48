#include "support/screen_clients.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "common/inputdevice_manager.h"
#include "common/keyboard_manager.h"
#include "common/screen_manager_internal.h"

namespace testsupport {

ScreenClients::ScreenClients(std::vector<int> connect)
{
    // A client end closed early must not end the test with SIGPIPE.
    signal(SIGPIPE, SIG_IGN);
    screen_model_reset();
    input_init();
    for (int s : connect) {
        int sv[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0)
            continue;
        fcntl(sv[1], F_SETFL, O_NONBLOCK);
        daemon_[s] = sv[0];
        client_[s] = sv[1];
        gs_clients[s].store(sv[0]);
    }
}

ScreenClients::~ScreenClients()
{
    for (int s = 0; s < 3; ++s) {
        gs_clients[s].store(0);
        if (daemon_[s] >= 0)
            close(daemon_[s]);
        if (client_[s] >= 0)
            close(client_[s]);
    }
    screen_model_reset();
}

std::vector<uint8_t> ScreenClients::bytes(int screen)
{
    std::vector<uint8_t> out;
    uint8_t buf[512];
    ssize_t n = 0;
    while (client_[screen] >= 0 && (n = read(client_[screen], buf, sizeof buf)) > 0)
        out.insert(out.end(), buf, buf + n);
    return out;
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
