#include "common/OrvelClient.h"

#include <mutex>

int gs_ipcType = 0;

namespace {
// Guards the remote-screen socket's registration against the main loop's walk
// of the monitor list. Recursive because a handler run by the loop may drop
// the socket while the loop still holds the lock.
std::recursive_mutex ipc_close_socket_lock;
}  // namespace

void LockIpcSocket()
{
    ipc_close_socket_lock.lock();
}

void UnlockIpcSocket()
{
    ipc_close_socket_lock.unlock();
}
