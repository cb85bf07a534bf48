// Key-sound request building, visible to its tests.
#pragma once

#include <cstdint>

#include "common/keyaudio/key_voice.h"

// The 20-byte request: magic, length, volume, seat and the CRC-32 of the
// first 16 bytes.
KeyAudioDatabuf build_key_audio_request(uint32_t volume, uint32_t seat);
