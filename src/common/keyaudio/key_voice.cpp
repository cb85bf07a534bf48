#include "common/keyaudio/key_voice.h"

#include <atomic>

namespace {
// The newest audio client's descriptor, 0 = none. Stored by the service's
// accept thread, read without a lock by the event thread's writer.
std::atomic<int> audio_client_fd{0};
}  // namespace

int key_audio_client_fd()
{
    return audio_client_fd.load(std::memory_order_relaxed);
}
