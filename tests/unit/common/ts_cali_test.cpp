// Touchscreen calibration records: seat checks and the grace period before a
// record the event thread may be using is freed.
#include "common/ts_cali.h"

#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <atomic>

#include "common/inputdevice_manager.h"
#include "common/evdev_msg.h"
#include "msg_handle.h"
#include "support/held_dispatch.h"
#include "support/log_capture.h"

namespace {

TEST(TouchscreenData, SeatsOutsideTheTableAreRefused)
{
    testsupport::LogCapture log;
    auto* rec = new ts_priv_data_s{};
    EXPECT_EQ(ts_set_private_data(15, rec), -1);
    EXPECT_EQ(ts_get_private_data(-1), nullptr);
    ts_free_private_data(15);
    EXPECT_EQ(log.count("Error, invalid param (usb seat 15)\n"), 2);
    EXPECT_EQ(ts_set_private_data(14, rec), 0);
    EXPECT_EQ(ts_get_private_data(14), rec);
    ts_free_private_data(14);
    EXPECT_EQ(ts_get_private_data(14), nullptr);
}

// The pipeline holds the seat's record while the hot-plug thread replaces or
// frees it: the old record lives until the main loop's pass has ended.
TEST(TouchscreenData, ARecordReplacedOrFreedDuringTheEventPipelineLivesUntilThePassEnds)
{
    for (bool replace : {false, true}) {
        SCOPED_TRACE(replace ? "replaced" : "freed");
        ASSERT_EQ(ts_set_private_data(0, new ts_priv_data_s{}), 0);
        const ts_priv_data_s* held = ts_get_private_data(0);
        int p[2];
        ASSERT_EQ(pipe(p), 0);
        const ::input_event raw{};
        ASSERT_EQ(write(p[1], &raw, sizeof raw), static_cast<ssize_t>(sizeof raw));
        _InputDev dev;
        dev.fd = p[0];
        ASSERT_EQ(add_monitor_handle(p[0], EvdevReadInput, &dev), 0);
        {
            std::atomic<int> mode{-1};
            testsupport::HeldDispatch pass(p[0], [&] { mode.store(held->mode.load()); });
            pass.go();
            if (replace)
                ts_set_private_data(0, new ts_priv_data_s{});
            else
                ts_free_private_data(0);
            EXPECT_TRUE(pass.finished());
            EXPECT_EQ(mode.load(), 0);
        }
        remove_monitor_handle(p[0]);
        ts_free_private_data(0);
        close(p[0]);
        close(p[1]);
    }
}

}  // namespace
