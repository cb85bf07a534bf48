// The key sound service: the daemon listens on "/tmp/UNIX2.domain.audio" and
// writes the newest audio client one 20-byte request per touch press.
#pragma once

#include <cstddef>
#include <cstdint>

// Key-sound request, 20 bytes, little-endian.
struct KeyAudioDatabuf {
    struct {
        uint32_t flag;    // KEY_AUDIO_FLAG
        uint32_t length;  // 20, the whole record
    } Heard;
    uint32_t keyvolume;   // key-click volume of the touchscreen (non-zero)
    uint32_t index;       // touchscreen index that was pressed
    uint32_t check;       // CRC-32 of bytes 0..15
};
static_assert(sizeof(KeyAudioDatabuf) == 20);
static_assert(offsetof(KeyAudioDatabuf, keyvolume) == 8);
static_assert(offsetof(KeyAudioDatabuf, index) == 12);
static_assert(offsetof(KeyAudioDatabuf, check) == 16);

inline constexpr uint32_t KEY_AUDIO_FLAG = 0xAABBCCFF;
inline constexpr const char* KEY_AUDIO_SOCKET_PATH = "/tmp/UNIX2.domain.audio";
inline constexpr const char* KEY_AUDIO_LOG_PATH = "/tmp/audio-server.txt";

// Opens the service log and starts the service's thread, which waits for the
// first audio client and then keeps accepting newer ones. Returns the
// thread-creation result (0 on success).
int Key_Audio_Init();

// Descriptor of the current audio client; 0 while none has connected. A
// newer client takes over this same descriptor number, so a writer holding
// the value never writes to a closed or reused descriptor.
int key_audio_client_fd();
