#include "common/multi_config.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>

#include "common/log.h"
#include "common/multi_config_internal.h"
#include "support/log_capture.h"
#include "support/scratch_root.h"

namespace {

std::string repeat(int n, const std::string& line)
{
    std::string out;
    while (n-- > 0)
        out += line;
    return out;
}

bool device_table_empty()
{
    return std::all_of(device_seats.begin(), device_seats.end(), [](const auto& r) { return r.syspath == nullptr; });
}

class SeatConfig : public testing::Test {
protected:
    int load(const std::string& text) { return config_init(testsupport::write_port_conf(root.path(), text).c_str()); }
    testsupport::ScratchRoot root;
    testsupport::LogCapture log{LEVEL_DEBUG};
};

// Seats 1 and 2 of the example and two of its printed lines: the system
// tests, whose daemons all read it.
TEST_F(SeatConfig, ExampleFileFillsPortsAndTerminalsAndIsPrinted)
{
    ASSERT_EQ(load(testsupport::kExamplePortConf), 0);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.0-1.4/input0"), 5);  // behind a hub
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.1-1.3/input0"), -1);
    EXPECT_EQ(get_device_seat("ALSA"), -1);
    EXPECT_EQ(get_device_seat(nullptr), -1);
    EXPECT_STREQ(get_seat_syspath(5), "usb-musb-hdrc.0-1");
    EXPECT_EQ(get_seat_syspath(3), nullptr);
    EXPECT_EQ(get_input_conf_display(5), 0);
    EXPECT_EQ(get_input_conf_display(1), 0);
    EXPECT_EQ(get_input_conf_display(2), 1);
    EXPECT_EQ(get_input_conf_display(9), 0);  // unlisted seats land on screen 0
    EXPECT_EQ(output_seats[0].syspath, nullptr);

    EXPECT_EQ(log.count("screen:0 ______ 5\n"), 1);
    EXPECT_EQ(log.count("         |_____ 1\n"), 1);
}

TEST_F(SeatConfig, MissingFileIsReported)
{
    const std::string path = root.at("/absent.conf");
    EXPECT_EQ(config_init(path.c_str()), -1);
    EXPECT_TRUE(log.has("open file " + path + " failed\n"));
}

TEST_F(SeatConfig, UnsupportedAndMalformedSectionLinesAreSkipped)
{
    ASSERT_EQ(load("StartSection Terminal\nScreen 1\nInputDevice 4\nEndSection\n"
                   "StartSection\nStartSection \"Input\"\nusb-a 3\nEndSection\n"),
              0);
    EXPECT_TRUE(log.has("parse error section Terminal is unsurpport\n"));
    EXPECT_TRUE(log.has("Format error : StartSection\n"));
    EXPECT_EQ(terminals[1].inputCount, 0);
    EXPECT_EQ(get_device_seat("usb-a/input0"), 3);
}

TEST_F(SeatConfig, LaterTerminalWithTheSameScreenReplacesTheFirst)
{
    ASSERT_EQ(load("StartSection \"Terminal\"\nScreen 2\nInputDevice 1\nInputDevice 3\nEndSection\n"
                   "StartSection \"Terminal\"\nScreen 2\nInputDevice 4\nEndSection\n"),
              0);
    EXPECT_EQ(terminals[2].inputCount, 1);
    EXPECT_EQ(get_input_conf_display(4), 2);
    EXPECT_EQ(get_input_conf_display(3), 0);
}

TEST_F(SeatConfig, FirstMatchingPrefixWinsSoLongerPrefixesGoFirst)
{
    ASSERT_EQ(load("StartSection \"Input\"\nusb-musb-hdrc.1-1 1\nusb-musb-hdrc.1-1.2 2\nEndSection\n"
                   "StartSection \"Input\"\nusb-musb-hdrc.0-1.2 4\nusb-musb-hdrc.0-1 3\nEndSection\n"),
              0);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.1-1/input0"), 1);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.1-1.2/input0"), 1);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.0-1/input0"), 3);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.0-1.2/input0"), 4);
}

TEST_F(SeatConfig, LinesAreSplitAfter98Characters)
{
    // The first 98 characters are a comment; the rest is read as a line of its own.
    ASSERT_EQ(load("#" + std::string(97, '-') + "StartSection \"Input\"\nusb-a 3\nEndSection\n"), 0);
    EXPECT_EQ(get_device_seat("usb-a/input0"), 3);
    // ... and still counts as one line where the parser says it stopped.
    EXPECT_EQ(config_last_stop().line, 3);
}

TEST_F(SeatConfig, AbortReleasesPortRowsButKeepsStoredTerminals)
{
    ASSERT_EQ(load("StartSection \"Terminal\"\nScreen 1\nInputDevice 2\nEndSection\n"
                   "StartSection \"Input\"\nusb-a 1\nusb-b 2\nusb-c\nEndSection\n"),
              -1);
    EXPECT_TRUE(log.has("file error!\n"));
    const config_stop_s& stop = config_last_stop();
    EXPECT_EQ(stop.line, 8);
    EXPECT_EQ(stop.section_line, 5);
    EXPECT_FALSE(stop.at_end);
    EXPECT_STREQ(stop.text.data(), "usb-c");
    EXPECT_TRUE(device_table_empty());
    EXPECT_EQ(get_device_seat("usb-a/input0"), -1);
    EXPECT_EQ(get_input_conf_display(2), 1);
}

struct ConfigCase {
    const char* name;
    std::string text;
    int expected;
    friend void PrintTo(const ConfigCase& c, std::ostream* os) { *os << c.name; }
};

class SeatConfigFile : public SeatConfig, public testing::WithParamInterface<ConfigCase> {};

// Every abort, capacity overflows included, is reported as "file error!".
TEST_P(SeatConfigFile, ReturnsExpectedResult)
{
    EXPECT_EQ(load(GetParam().text), GetParam().expected);
    EXPECT_EQ(log.has("file error!\n"), GetParam().expected == -1);
}

const std::string kTerm = "StartSection \"Terminal\"\n";
const std::string kInput = "StartSection \"Input\"\n";
const std::string kOutput = "StartSection \"Output\"\n";
const std::string kEnd = "EndSection\n";

INSTANTIATE_TEST_SUITE_P(
    Grammar, SeatConfigFile,
    testing::Values(
        ConfigCase{"LastSectionWithoutEnd", kTerm + kEnd + kInput + "usb-a 1\n", -1},
        ConfigCase{"CommentAsLastLineInOpenSection", kInput + "usb-a 1\n# end", -1},
        ConfigCase{"EndSectionWithoutNewline", kInput + "usb-a 1\nEndSection", 0},
        ConfigCase{"EndSectionAsSubstring", kInput + "usb-a 1\n  xEndSectionx\n", 0},
        ConfigCase{"TextAfterLastSection", kTerm + kEnd + "trailing words\n", 0},
        ConfigCase{"TerminalKeyWithoutValue", kTerm + "Screen\n" + kEnd, -1},
        ConfigCase{"ModeKeyWithoutValue", "StartSection \"Mode\"\nScreenNum\n" + kEnd, -1},
        ConfigCase{"UnknownKeysAreIgnored", kTerm + "Colour blue\n" + kEnd, 0},
        ConfigCase{"FifteenInputRows", kInput + repeat(15, "usb-x 1\n") + kEnd, 0},
        ConfigCase{"SixteenInputRowsOverAllSections",
                   kInput + repeat(10, "usb-x 1\n") + kEnd + kInput + repeat(6, "usb-y 2\n") + kEnd, -1},
        ConfigCase{"ThreeOutputRows", kOutput + repeat(3, "hdmi 1\n") + kEnd, 0},
        ConfigCase{"FourOutputRows", kOutput + repeat(4, "hdmi 1\n") + kEnd, -1},
        ConfigCase{"FifteenInputDevices", kTerm + repeat(15, "InputDevice 1\n") + kEnd, 0},
        ConfigCase{"SixteenInputDevices", kTerm + repeat(16, "InputDevice 1\n") + kEnd, -1},
        ConfigCase{"ScreenTwo", kTerm + "Screen 2\n" + kEnd, 0},
        ConfigCase{"ScreenThree", kTerm + "Screen 3\n" + kEnd, -1},
        ConfigCase{"NegativeScreen", kTerm + "Screen -1\n" + kEnd, -1}),
    [](const testing::TestParamInfo<ConfigCase>& info) { return info.param.name; });

}  // namespace
