#include "arm/IndpClient.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "common/OrvelClient.h"
#include "common/OrvelClient_internal.h"
#include "common/client_send.h"
#include "common/communicate.h"
#include "common/inputdevice_manager.h"
#include "common/log.h"
#include "msg_handle.h"

std::atomic<int> gs_indpClientExist{0};
std::atomic<int> gs_indpfd{0};

namespace {

constexpr unsigned RETRY_PAUSE_MS = 5000;
constexpr unsigned CONNECTED_CHECK_MS = 5000;
constexpr int FAIL_LINES_MAX = 10;
constexpr int RECV_LEN = 10;

// Connects fd (blocking), retrying with the same socket every 5 s: false
// when the agent link is (or becomes) connected, or the thread is to stop.
bool indp_connect(int fd)
{
    if (ipcIsExist() != 0)
        return false;
    sockaddr_in peer{};
    link_peer_address(INDP_PEER_ADDR, INDP_PORT, &peer);
    for (int fail_lines = 0;;) {
        if (connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0)
            return true;
        if (fail_lines < FAIL_LINES_MAX) {
            TLOG(LEVEL_ERROR, "connect indp %s:%d failed\n", INDP_PEER_ADDR, INDP_PORT);
            ++fail_lines;
        }
        if (!link_sleep_ms(RETRY_PAUSE_MS) || ipcIsExist() != 0)
            return false;
    }
}

void* indpThread(void*)
{
    TLOG(LEVEL_DEBUG, "----Thread indp enter----\n");
    while (!link_stop_requested()) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        if (fd <= 0) {
            TLOG(LEVEL_ERROR, "create indp socket failed\n");
            if (fd == 0)
                close(fd);
            break;
        }
        if (link_bind_local(fd) != 0) {
            // The socket stays open: the thread is done for the life of the
            // process.
            TLOG(LEVEL_ERROR, "----Indp Bind Failed----\n");
            break;
        }
        TLOG(LEVEL_DEBUG, "+++++++++indp_fd   %d\n", fd);
        if (!indp_connect(fd)) {
            close(fd);  // not connected: nobody else knows this socket
            break;
        }
        handleINDPReady(fd);
        while (gs_indpClientExist.load() == 1 && link_sleep_ms(CONNECTED_CHECK_MS)) {
        }
        handleINDPDisconnected(fd);
    }
    link_thread_done();
    return nullptr;
}

}  // namespace

int InitArmIndpScreenClient()
{
    if (start_link_thread(indpThread) != 0) {
        TLOG(LEVEL_ERROR, "create indp thread failed\n");
        return -1;
    }
    return 0;
}

void handleINDPReady(int fd)
{
    TLOG(LEVEL_DEBUG, "==INDP ready==\n");
    link_set_nodelay(fd);
    // Under the loop lock, like every registration: a control client's
    // TYPE_INPUT_INIT 1 and this one are decided one after the other, and the
    // loop cannot serve the socket before the link is complete. Stored
    // first, so that a disconnect of the main loop that comes before the
    // flag finds the link as its own.
    LoopLockGuard loop;
    gs_indpfd.store(fd);
    // Non-blocking before the main loop sends anything to it; a link the
    // loop cannot serve (its list is full) is not made screen 1's receiver,
    // and with the connected flag at 0 the thread drops it and tries again.
    set_non_block(fd);
    if (add_monitor_handle(fd, indpMsgHandle, reinterpret_cast<void*>(static_cast<intptr_t>(fd))) != 0) {
        TLOG(LEVEL_ERROR, "indp link %d cannot be served: dropped\n", fd);
        return;
    }
    handle_inputsys_init(SUB_SCREEN, fd);
    gs_indpClientExist.store(1);
}

void handleINDPDisconnected(int fd)
{
    TLOG(LEVEL_DEBUG, "==INDP disconnected==\n");
    // Run first by the receive handler, which closes the link, and again by
    // the thread once it sees the flag at 0. Under the loop lock, like every
    // registration; the run that takes fd out of gs_indpfd is the only one
    // that unregisters and closes it; the second finds 0 there and leaves the
    // number alone, since it may have been given to a new control connection
    // or an input device meanwhile.
    LoopLockGuard loop;
    int current = fd;
    const bool ours = fd > 0 && gs_indpfd.compare_exchange_strong(current, 0);
    if (ours) {
        remove_monitor_handle(fd);
        handle_inputsys_close(fd);
        client_send_forget(fd);
        close(fd);
    }
    if (ours || current == 0)
        gs_indpClientExist.store(0);  // last: the thread acts on it
}

int indpMsgHandle(void* para)
{
    const int fd = static_cast<int>(reinterpret_cast<intptr_t>(para));
    char buf[RECV_LEN];
    const int n = link_recv(fd, buf, sizeof buf);
    if (n == 0 || (n == -1 && errno != EAGAIN))
        handleINDPDisconnected(fd);
    return 0;
}
