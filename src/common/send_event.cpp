#include "common/send_event.h"

#include "common/OrvelClient.h"
#include "common/client_send.h"
#include "common/inputdevice_manager.h"
#include "common/log.h"

namespace {
constexpr int EVENT_SIZE = sizeof(tactord::input_event);
}  // namespace

int send_event(int client, tactord::input_event* ev)
{
    if (client < 0 || client >= SCREEN_COUNT || ev == nullptr)
        return -1;
    const int fd = gs_clients[client].load();
    if (fd < 1)
        return -1;
    int ret = 0;
    if (client == IPC_SCREEN && gs_ipcType == 0)
        ret = sendToIPC(fd, ev);
    else
        ret = client_send(fd, ev, EVENT_SIZE);
    debug_send_event(client, ev);
    return ret;
}

int send_event_by_fd(int fd, tactord::input_event* ev)
{
    if (fd < 1 || ev == nullptr)
        return -1;
    const int ret = client_send(fd, ev, EVENT_SIZE);
    // fd + 5 keeps these lines apart from the client indexes 0..2.
    debug_send_event(fd + 5, ev);
    return ret;
}

void debug_send_event(int index, const tactord::input_event* ev)
{
    // Called for every event sent: nothing to do unless debug lines show.
    if (ev == nullptr || !log_level_enabled(LEVEL_DEBUG))
        return;
    switch (ev->type) {
    case 0: TLOG(LEVEL_DEBUG, "[%d] SYN %d : %d\n", index, ev->code, ev->value); break;
    case 1: TLOG(LEVEL_DEBUG, "[%d] key 0x%x:%s\n", index, ev->code, ev->value != 0 ? "press" : "up"); break;
    case 2: TLOG(LEVEL_DEBUG, "[%d] mouse %c : %d\n", index, ev->code == 0 ? 'x' : 'y', ev->value); break;
    case 3: {
        char axis = static_cast<char>(ev->code);
        if (ev->code == 0 || ev->code == 53)
            axis = 'x';
        else if (ev->code == 1 || ev->code == 54)
            axis = 'y';
        TLOG(LEVEL_DEBUG, "[%d] ABS %c : %d\n", index, axis, ev->value);
        break;
    }
    default:
        TLOG(LEVEL_DEBUG, "[%d] type: 0x%x code: 0x%x val: %d\n", index, ev->type, ev->code, ev->value);
        break;
    }
}
