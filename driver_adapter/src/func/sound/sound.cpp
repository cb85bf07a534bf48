#include "func/sound/sound.h"

#include <atomic>

namespace {

std::atomic<drv_device_t*> g_sound_dev{nullptr};
std::atomic<unsigned int> g_sound_plays{0};
// Each field of the last request is stored on its own; a reader racing a
// play may see fields of two requests, which only matters to diagnostics.
std::atomic<int> g_last_sound{0}, g_last_volume{0}, g_last_p3{0}, g_last_p4{0}, g_last_screen{0},
    g_last_p6{0};

}  // namespace

drv_device_t* SoundSetup(const char* name, const char* path, int n)
{
    drv_device_t* dev = drv_device_create(DRV_CLASS_SOUND, name, path, n, 0);
    if (dev != nullptr)
        g_sound_dev.store(dev, std::memory_order_release);
    return dev;
}

int Sound_Play(int sound, int volume, int param3, int param4, int screen, int param6)
{
    if (g_sound_dev.load(std::memory_order_acquire) == nullptr)
        return -1;
    constexpr auto r = std::memory_order_relaxed;
    g_last_sound.store(sound, r);
    g_last_volume.store(volume, r);
    g_last_p3.store(param3, r);
    g_last_p4.store(param4, r);
    g_last_screen.store(screen, r);
    g_last_p6.store(param6, r);
    g_sound_plays.fetch_add(1, std::memory_order_release);
    return 0;
}

unsigned int sound_play_count()
{
    return g_sound_plays.load(std::memory_order_acquire);
}

sound_play_request sound_last_request()
{
    constexpr auto r = std::memory_order_relaxed;
    return {g_last_sound.load(r),  g_last_volume.load(r), g_last_p3.load(r),
            g_last_p4.load(r),     g_last_screen.load(r), g_last_p6.load(r)};
}
