#include "common/evdev_msg.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <tuple>
#include <vector>

#include "common/evdev_msg_internal.h"
#include "common/inputdevice_manager.h"
#include "common/inputevent_handle_internal.h"
#include "support/log_capture.h"

namespace {

struct Seen {
    _InputDev* dev;
    tactord::input_event ev;
    evdev_event_path path;
};
std::vector<Seen> seen;

void observe(_InputDev* dev, const tactord::input_event* ev, evdev_event_path path)
{
    seen.push_back({dev, *ev, path});
}

::input_event native(int sec, int usec, uint16_t type, uint16_t code, int32_t value)
{
    ::input_event e{};
    e.input_event_sec = sec;
    e.input_event_usec = usec;
    std::tie(e.type, e.code, e.value) = std::tie(type, code, value);
    return e;
}

// A node stand-in: a non-blocking pipe whose write end plays the kernel.
class Reading : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(pipe2(fds_, O_NONBLOCK), 0);
        dev_.fd = fds_[0];
        seen.clear();
        process_evdev_observer = observe;
    }
    void TearDown() override
    {
        process_evdev_observer = nullptr;
        evdev_read = ::read;
        close(fds_[0]);
        close(fds_[1]);
    }
    void put(const std::vector<::input_event>& evs)
    {
        const auto len = static_cast<ssize_t>(evs.size() * sizeof(::input_event));
        ASSERT_EQ(write(fds_[1], evs.data(), len), len);
    }

    int fds_[2];
    _InputDev dev_;
};

TEST_F(Reading, WholeRecordsArriveInOrderConverted)
{
    std::vector<::input_event> evs;
    for (int i = 0; i < 40; ++i)
        evs.push_back(native(1000 + i, 500, EV_ABS, ABS_X, i - 3));
    put(evs);
    EXPECT_EQ(EvdevReadInput(&dev_), 0);
    // More than one batch of 16 was drained in one call.
    ASSERT_EQ(seen.size(), 40u);
    for (int i = 0; i < 40; ++i) {
        const tactord::input_event& got = seen[i].ev;
        EXPECT_TRUE(seen[i].dev == &dev_ && seen[i].path == evdev_event_path::router) << i;
        EXPECT_TRUE(got.tv_sec == 1000 + i && got.tv_usec == 500 && got.type == EV_ABS && got.code == ABS_X &&
                    got.value == i - 3)
            << i;
    }
}

ssize_t fail_with(int err)
{
    errno = err;
    return -1;
}

// A torn read, dropped whole: the input-device system test.
TEST_F(Reading, OnlyRealReadErrorsAreLogged)
{
    testsupport::LogCapture log;
    EXPECT_EQ(EvdevReadInput(&dev_), 0);  // EAGAIN
    evdev_read = [](int, void*, size_t) { return fail_with(ENODEV); };  // unplugged
    EXPECT_EQ(EvdevReadInput(&dev_), 0);
    EXPECT_TRUE(log.lines().empty());
    evdev_read = [](int, void*, size_t) { return fail_with(EIO); };
    EXPECT_EQ(EvdevReadInput(&dev_), 0);
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(EvdevReadInput(nullptr), -1);
}

}  // namespace
