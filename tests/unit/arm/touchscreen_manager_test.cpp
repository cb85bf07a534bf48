// Touch wrappers over the lock control without a configuration device: touches go out normally, the
// adapter is given coordinates scaled to twelve bits.
#include "arm/touchscreen_manager.h"

#include "arm/touchscreen_manager_internal.h"
#include "func/touchscreen/touchscreen_lock_ctl.h"
#include "support/unit_common.h"

TEST(TouchWrappers, TouchesGoOutAndCoordinatesReachTheAdapterScaledToTwelveBits)
{
    touchscreeninit();
    tactord::input_event touch{0, 0, 1, 330, 1};
    EXPECT_EQ(touch_screen_lock_KEY(&touch, 0), 0);
    touch_voice_play(&touch, 1);  // no volume, no audio client: mirrored only
    EXPECT_EQ(scr_lock_info[1].lock_info.keydown, 1);
    const struct {
        int max, value, seat, mirrored;
    } cases[] = {{1023, 1023, 0, 4092}, {4095, 4095, 1, 4095}, {4095, 17, 2, 17}, {2047, 2047, 0, 2047}};
    for (const auto& c : cases) {
        touchscreeninit();
        ts_num_x = c.max;
        tactord::input_event ev{0, 0, 3, 0, c.value};
        EXPECT_EQ(touch_screen_lock_ABS(&ev, c.seat), 0);
        EXPECT_TRUE(scr_lock_info[c.seat].lock_info.xcord == c.mirrored && ev.value == c.value) << c.max;  // caller's event kept
    }
    tactord::input_event ev{0, 0, 3, 0, 5};
    EXPECT_EQ(touch_screen_lock_ABS(&ev, 3), 0);  // seat 3: outside the table, ignored
}
