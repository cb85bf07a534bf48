// Arbitrary bytes from the agent through the remote-screen link's receive
// handler. Input: a settings byte (bit 0: IPC-window mode), then pieces: 0xFF
// closes the agent's end (a new link follows), any other c sends the next
// c % 56 + 1 bytes as one read.
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>

#include "common/OrvelClient.h"
#include "common/OrvelClient_internal.h"
#include "common/inputdevice_manager.h"
#include "common/screen_manager_internal.h"
#include "fuzz_scratch.h"

namespace {

int link_fd = -1;  // the daemon's end
int peer_fd = -1;  // the agent's end

bool open_link()
{
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, sv) != 0)
        return false;
    link_fd = sv[0];
    peer_fd = sv[1];
    gs_ipcfd.store(link_fd);
    gs_ipcClientExist.store(1);
    gs_clients[IPC_SCREEN].store(link_fd);
    return true;
}

void close_link()
{
    // The daemon's end, unless a disconnect has closed it already.
    if (gs_ipcfd.load() == link_fd)
        close(link_fd);
    close(peer_fd);
    gs_ipcfd.store(0);
    gs_clients[IPC_SCREEN].store(0);
}

void check_invariants()
{
    if (ipc_rx.splice_len > IPC_SPLICE_BUF_LEN || strnlen(ipcVersion(), IPC_TEXT_LEN) >= IPC_TEXT_LEN)
        __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = fuzzsupport::set_up_daemon_scratch();
    if (!ready || size == 0)
        return 0;
    screen_model_reset();
    ipc_client_reset();
    gs_ipc_mode.store((data[0] & 1) != 0 ? MODE_IPC_WINDOW : 0);
    if (!open_link())
        return 0;
    for (size_t at = 1; at < size;) {
        const uint8_t control = data[at++];
        if (control == 0xFF) {
            shutdown(peer_fd, SHUT_WR);
            ipcMsgHandle(reinterpret_cast<void*>(static_cast<intptr_t>(link_fd)));
            close_link();
            if (!open_link())
                return 0;
            continue;
        }
        const size_t n = std::min<size_t>(control % IPC_RECV_BUF_LEN + 1, size - at);
        if (n == 0 || write(peer_fd, data + at, n) != static_cast<ssize_t>(n))
            break;
        at += n;
        ipcMsgHandle(reinterpret_cast<void*>(static_cast<intptr_t>(link_fd)));
        check_invariants();
    }
    close_link();
    return 0;
}
