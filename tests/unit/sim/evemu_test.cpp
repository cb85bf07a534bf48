// Recordings in the evemu text format: the device a header describes, the events and their frames, and
// the line a malformed file is refused at. The recording is the fuzz target's touchscreen seed.
#include "sim/evemu.h"

#include "support/unit_common.h"

TEST(Recording, HeaderDescribesTheDeviceEventsFallIntoFramesAndMalformedLinesAreRefused)
{
    // A last frame without its SYN_REPORT, a time with leading zeros and a comment after the values.
    const std::string text = testsupport::read_file(TACTORD_SOURCE_DIR "/fuzz/corpus/evemu_fuzz/touchscreen.events") +
                             "E: 10.000060 0001 014a 1\t# EV_KEY / BTN_TOUCH 1\n";
    emul::Recording rec;
    std::string error;
    ASSERT_TRUE(emul::parse_recording(text, rec, error)) << error;
    ASSERT_TRUE(rec.describes_device());
    const emul::TestDevice dev = rec.device("usb-x/input0");
    EXPECT_EQ(dev.name + "|" + dev.phys, "Touch Controller # with a hash in its name|usb-x/input0");
    EXPECT_EQ(dev.ev, (std::vector<unsigned>{EV_SYN, EV_KEY, EV_ABS}));
    EXPECT_EQ(dev.key, (std::vector<unsigned>{650}));  // bit 2 of byte 81: "B: 01" lines run on
    EXPECT_EQ(dev.abs, (std::vector<unsigned>{ABS_X, ABS_Y, ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y,
                                              ABS_MT_TRACKING_ID}));
    ASSERT_EQ(dev.axes.size(), 6U);
    EXPECT_TRUE(dev.axes[3].code == ABS_MT_POSITION_X && dev.axes[3].maximum == 4095 && dev.axes[5].maximum == 65535);
    ASSERT_EQ(rec.events.size(), 12U);
    EXPECT_TRUE(rec.events[0].usec == 500000U && rec.events[1].value == 12 && rec.events[8].value == -1);
    EXPECT_TRUE(rec.events[8].usec == 560000U && rec.events[11].usec == 60U);  // "10.56" is 560 ms past 10
    const auto frames = emul::recording_frames(rec.events);
    ASSERT_EQ(frames.size(), 3U);  // the last frame has no SYN_REPORT and is kept
    EXPECT_TRUE(frames[0].size() == 8U && frames[1].size() == 3U && frames[2].size() == 1U);

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
        rec = {};
        EXPECT_FALSE(emul::parse_recording(c.text, rec, error)) << c.text;
        EXPECT_EQ(error.rfind(c.error, 0), 0U) << error;
    }
    // Unknown header lines are no error (they describe what is not emulated), nor is a short "A:" line.
    rec = {};
    EXPECT_TRUE(emul::parse_recording("P: 00 00\nL: 00 1\nS: 00 0\nX: new\nA: 35 0 4095\n", rec, error)) << error;
    EXPECT_FALSE(rec.describes_device());
}
