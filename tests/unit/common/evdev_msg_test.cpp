// Reading an evdev node: native records drained whole and converted to the 16-byte record; only
// real read errors logged (a torn read: the input-device system test).
#include "common/evdev_msg.h"

#include "common/evdev_msg_internal.h"
#include "support/unit_common.h"

namespace {

std::vector<tactord::input_event> seen;

TEST(EvdevRead, FortyRecordsArriveInOneCallInOrderConvertedAndOnlyRealErrorsAreLogged)
{
    testsupport::LogCapture log;
    testsupport::UnitPeer node(O_NONBLOCK);
    static _InputDev dev;
    dev.fd = node.daemon;
    process_evdev_observer = [](_InputDev* d, const tactord::input_event* ev, evdev_event_path path) {
        if (d == &dev && path == evdev_event_path::router)
            seen.push_back(*ev);
    };
    std::vector<::input_event> evs(40);
    for (int i = 0; i < 40; ++i)
        std::tie(evs[i].input_event_sec, evs[i].input_event_usec, evs[i].type, evs[i].value) = std::tuple(1000 + i, 500, EV_ABS, i - 3);
    ASSERT_TRUE(node.put(evs.data(), evs.size() * sizeof evs[0]));
    EXPECT_EQ(EvdevReadInput(&dev), 0);
    ASSERT_EQ(seen.size(), 40u);  // more than one batch of 16
    for (int i = 0; i < 40; ++i)
        EXPECT_TRUE(seen[i].tv_sec == 1000 + i && seen[i].tv_usec == 500 && seen[i].type == EV_ABS &&
                    seen[i].code == 0 && seen[i].value == i - 3) << i;
    process_evdev_observer = nullptr;

    EXPECT_EQ(EvdevReadInput(&dev), 0);  // EAGAIN
    evdev_read = [](int, void*, size_t) { return errno = ENODEV, ssize_t{-1}; };  // unplugged
    EXPECT_EQ(EvdevReadInput(&dev), 0);
    EXPECT_TRUE(log.lines().empty());
    evdev_read = [](int, void*, size_t) { return errno = EIO, ssize_t{-1}; };
    EXPECT_EQ(EvdevReadInput(&dev), 0);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(EvdevReadInput(nullptr), -1);
    evdev_read = ::read;
}

}  // namespace
