#include "common/keyaudio/key_voice.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "common/keyaudio/voicelog.h"
#include "common/usb_gun/unixsocket.h"
#include "common/worker_thread.h"

namespace {

// The play callback the service installs; nothing calls it.
struct Audio_Play_t {
    int (*fn)(unsigned, unsigned);
    void* param;
};

int audio_play_stub(unsigned, unsigned)
{
    return 0;
}

struct AudioServer_Ctrl_t {
    int unx_ser_fd = 0;  // listening socket
    // The newest client, 0 = none. Stored by the service's threads, read
    // without a lock by the event thread's writer (release and acquire, so
    // that the writer sees the accepted connection complete).
    std::atomic<int> unx_fd{0};
    pthread_t pthread_accept{};
    // Guards the store of unx_fd (and the takeover of its descriptor).
    std::mutex mutex_server;
    Audio_Play_t cb{};
};

AudioServer_Ctrl_t audio_ctrl;

// Makes fd the current client. The first client's descriptor number stays
// the current one for good: a newer client is moved onto it with dup2, which
// closes the replaced connection in the same step. So the writer, which
// reads the number without a lock, never writes to a closed descriptor or
// one that was meanwhile reused for something else.
void take_client(int fd)
{
    // Only the daemon writes: a client that stops reading must not stall the
    // event thread, so its writes fail instead of blocking.
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    std::lock_guard<std::mutex> guard(audio_ctrl.mutex_server);
    const int current = audio_ctrl.unx_fd.load(std::memory_order_relaxed);
    if (current <= 0) {
        audio_ctrl.unx_fd.store(fd, std::memory_order_release);
        return;
    }
    if (dup2(fd, current) >= 0)
        close(fd);
    else
        audio_ctrl.unx_fd.store(fd, std::memory_order_release);  // keep serving the newest
}

// Logs a failed accept of the audio listener, one line a second at most.
void accept_failed(AcceptFailures& failures, int err)
{
    if (const unsigned n = failures.note(err))
        AUDIOLOG("Accept unix client is error:%s(errno: %d), %u times.\r\n", std::strerror(err), err, n);
}

void* key_audio_accept_thread(void*)
{
    sleep(2);
    AcceptFailures failures;
    for (;;) {
        const int fd = unix_server_accept(audio_ctrl.unx_ser_fd);
        if (fd > 0) {
            take_client(fd);
            AUDIOLOG("key audio unix client connected...\r\n");
        } else if (fd < 0) {
            accept_failed(failures, errno);
        }
        usleep(200000);
    }
    return nullptr;
}

void* key_audio_thread(void*)
{
    audio_ctrl.unx_ser_fd = 0;
    audio_ctrl.cb = {audio_play_stub, nullptr};
    int client = -1;
    AcceptFailures failures;
    while (client <= 0) {
        // A fresh listening socket each attempt, as the service always did;
        // the one before is closed first (its accept failed).
        unix_socket_close(audio_ctrl.unx_ser_fd);
        audio_ctrl.unx_ser_fd = unix_server_open(KEY_AUDIO_SOCKET_PATH);
        if (audio_ctrl.unx_ser_fd > 0) {
            client = unix_server_accept(audio_ctrl.unx_ser_fd);
            if (client < 0)
                accept_failed(failures, errno);
        }
        if (client <= 0)
            usleep(100000);
    }
    take_client(client);
    AUDIOLOG("Audio unix client connected...\r\n");
    // The server mutex is a std::mutex, whose set-up cannot fail; the
    // "MUTEX_INIT error" case of the service does not arise.
    const int rc = start_worker_thread(key_audio_accept_thread, nullptr, &audio_ctrl.pthread_accept);
    if (rc != 0) {
        AUDIOLOG("Pthread_create error:%s(errno: %d)\r\n", std::strerror(rc), rc);
        return reinterpret_cast<void*>(static_cast<intptr_t>(-3));
    }
    AUDIOLOG("Key Audio Socket server initation success...\r\n");
    for (;;)
        sleep(10);
    return nullptr;
}

}  // namespace

int Key_Audio_Init()
{
    audiolog_log_init(KEY_AUDIO_LOG_PATH);
    return start_worker_thread(key_audio_thread, nullptr);
}

int key_audio_client_fd()
{
    return audio_ctrl.unx_fd.load(std::memory_order_acquire);
}
