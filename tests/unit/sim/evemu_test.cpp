// Recordings in the evemu text format: the device a header describes, the
// events and their frames, and the line a malformed file is refused at.
#include "sim/evemu.h"

#include <gtest/gtest.h>
#include <linux/input.h>

namespace {

const char* const kTouch =
    "# EVEMU 1.3\n"
    "N: Touch # Controller\n"
    "I: 0003 0eef 0001 0100\n"
    "B: 00 0b 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 00 00 00 00 00 00 00\n"
    "B: 01 00 04\n"
    "B: 03 03 00 00 00 00 80 60 02\n"
    "A: 00 0 4095 0 0 0\n"
    "A: 35 0 4095\n"
    "E: 10.5 0003 0035 2048\t# EV_ABS / ABS_MT_POSITION_X 2048\n"
    "E: 10.500000 0001 014a 1\n"
    "E: 10.500000 0000 0000 0\n"
    "E: 10.000060 0001 014a 0\n";

TEST(Recording, HeaderDescribesTheDeviceAndEventsFallIntoFrames)
{
    emul::Recording rec;
    std::string error;
    ASSERT_TRUE(emul::parse_recording(kTouch, rec, error)) << error;
    ASSERT_TRUE(rec.describes_device());
    const emul::TestDevice dev = rec.device("usb-x/input0");
    EXPECT_EQ(dev.name, "Touch # Controller");
    EXPECT_EQ(dev.phys, "usb-x/input0");
    EXPECT_EQ(dev.ev, (std::vector<unsigned>{EV_SYN, EV_KEY, EV_ABS}));
    EXPECT_EQ(dev.key, (std::vector<unsigned>{BTN_TOUCH}));
    EXPECT_EQ(dev.abs, (std::vector<unsigned>{ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y,
                                              ABS_MT_TRACKING_ID}));
    ASSERT_EQ(dev.axes.size(), 2U);
    EXPECT_EQ(dev.axes[1].code, static_cast<unsigned>(ABS_MT_POSITION_X));
    EXPECT_EQ(dev.axes[1].maximum, 4095);

    ASSERT_EQ(rec.events.size(), 4U);
    EXPECT_EQ(rec.events[0].usec, 500000U);  // "10.5" is half a second past 10
    EXPECT_EQ(rec.events[3].usec, 60U);
    const auto frames = emul::recording_frames(rec.events);
    ASSERT_EQ(frames.size(), 2U);  // the last frame has no SYN_REPORT and is kept
    EXPECT_EQ(frames[0].size(), 3U);
    EXPECT_EQ(frames[1].size(), 1U);
}

TEST(Recording, MalformedLinesAreRefusedWithTheirNumber)
{
    const struct {
        std::string text;
        const char* error;
    } cases[] = {
        {"N: x\nE: 1.0 0001 001e\n", "line 2: malformed \"E:\" line"},
        {"E: 1.1234567 0001 001e 1\n", "line 1: malformed \"E:\""},
        {"E: 4294967296.0 0001 001e 1\n", "line 1: malformed \"E:\""},
        {"E: 1.0 10000 001e 1\n", "line 1: malformed \"E:\""},
        {"B: 20 ff\n", "line 1: malformed \"B:\""},
        {"B: 01 fff\n", "line 1: malformed \"B:\""},
        {"A: 40 0 1\n", "line 1: malformed \"A:\""},
        {"hello\n", "line 1: expected \"E:\""},
        {std::string(5000, 'E'), "line 1: longer than 4096"},
        {"B: 01 " + [] { std::string s; for (int i = 0; i < 97; ++i) s += "ff "; return s; }(), "line 1: malformed \"B:\""},
    };
    for (const auto& c : cases) {
        emul::Recording rec;
        std::string error;
        EXPECT_FALSE(emul::parse_recording(c.text, rec, error)) << c.text;
        EXPECT_EQ(error.rfind(c.error, 0), 0U) << error;
    }
    // Unknown header lines are no error: they describe what is not emulated.
    emul::Recording rec;
    std::string error;
    EXPECT_TRUE(emul::parse_recording("P: 00 00\nL: 00 1\nS: 00 0\nX: new\n", rec, error)) << error;
    EXPECT_FALSE(rec.describes_device());
}

}  // namespace
