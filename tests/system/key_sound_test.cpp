// Touch presses click through the key sound service: the touch output writes
// its request to the newest audio client at the driver's key volume.
#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include "arm/touchscreen_manager.h"
#include "common/keyaudio/key_voice.h"
#include "common/usb_gun/unixsocket.h"
#include "func/touchscreen/touchscreen_lock_ctl.h"
#include "sim/dev_mod_cfg_emul.h"
#include "support/remote_link.h"
#include "support/scanner.h"
#include "support/scratch_root.h"

namespace {

using namespace testsupport;
using namespace std::chrono_literals;

Bytes receive(int fd, unsigned timeout_ms = 1000)
{
    Bytes got(64);
    got.resize(static_cast<std::size_t>(std::max<ssize_t>(unix_socket_read(fd, got.data(), got.size(), timeout_ms), 0)));
    return got;
}

TEST(KeySound, PressesClickTheNewestAudioClientAtTheDriversVolume)
{
    ScratchRoot root;
    emul::DevModCfgEmulator drv;
    touchscreeninit();
    tactord::input_event press{0, 0, EV_KEY, BTN_TOUCH, 1}, release{0, 0, EV_KEY, BTN_TOUCH, 0};
    drv.set_volume(3);
    touch_voice_play(&press, 0);  // no audio client yet: nothing is written

    ASSERT_EQ(Key_Audio_Init(), 0);
    int first = -1;
    ASSERT_TRUE(eventually([&] { return first > 0 || (first = unix_client_open(KEY_AUDIO_SOCKET_PATH)) > 0; }, 5s));
    const std::string log = root.at("/tmp/audio-server.txt");
    ASSERT_TRUE(wait_for_file_text(log, "Key Audio Socket server initation success...\r\n"));
    EXPECT_EQ(count_text(read_file(log), "Audio unix client connected...\r\n"), 1);
    touch_voice_play(&press, 0);
    EXPECT_EQ(receive(first), words({0xAABBCCFF, 20, 3, 0, 0xef0419bf}));
    touch_voice_play(&release, 0);
    drv.set_volume(0);
    touch_voice_play(&press, 0);
    EXPECT_TRUE(receive(first, 200).empty());  // neither a release nor volume 0 clicks

    const int second = unix_client_open(KEY_AUDIO_SOCKET_PATH);
    ASSERT_TRUE(wait_for_file_text(log, "key audio unix client connected...\r\n"));
    drv.set_volume(5);
    touch_voice_play(&press, 1);
    EXPECT_EQ(receive(second).size(), 20U);
    EXPECT_TRUE(receive(first).empty());  // replaced and closed: end of stream
}

}  // namespace
