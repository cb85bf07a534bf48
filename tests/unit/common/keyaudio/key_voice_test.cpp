#include "common/keyaudio/key_voice.h"

#include "common/keyaudio/voicelog.h"
#include "support/unit_common.h"

TEST(KeyAudio, LogThatCannotBeOpenedIsSkippedQuietly)
{
    ScratchRoot root;
    EXPECT_EQ(key_audio_client_fd(), 0);  // no client yet
    std::filesystem::remove_all(root.at("/tmp"));
    EXPECT_EQ(audiolog_log_init(KEY_AUDIO_LOG_PATH), -1);
    EXPECT_EQ(audiolog_log_write("f", 1, "lost %d\r\n", 1), -1);
    const uint8_t byte = 7;
    audiolog_log_dumpdata(&byte, 1);

    std::filesystem::create_directories(root.at("/tmp"));
    ASSERT_EQ(audiolog_log_init(KEY_AUDIO_LOG_PATH), 0);  // tried again
    audiolog_log_dumpdata(&byte, 1);                        // the last byte is never shown
    EXPECT_EQ(root.count_in("/tmp/audio-server.txt", "[001]Data:\r\n"), 1);
}
