#include "common/multi_config.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <tuple>

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

class SeatConfig : public testing::Test {
protected:
    int load(const std::string& text) { return config_init(testsupport::write_port_conf(root.path(), text).c_str()); }
    testsupport::ScratchRoot root;
    testsupport::LogCapture log{LEVEL_DEBUG};
};

// Seats 1 and 2 are the system tests' (their daemons read this file).
TEST_F(SeatConfig, ExampleFileFillsPortsAndTerminalsAndIsPrinted)
{
    ASSERT_EQ(load(testsupport::kExamplePortConf), 0);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.0-1.4/input0"), 5);  // behind a hub
    for (const char* unknown : {"usb-musb-hdrc.1-1.3/input0", "ALSA", static_cast<const char*>(nullptr)})
        EXPECT_EQ(get_device_seat(unknown), -1);
    EXPECT_STREQ(get_seat_syspath(5), "usb-musb-hdrc.0-1");
    EXPECT_TRUE(get_seat_syspath(3) == nullptr && output_seats[0].syspath == nullptr);
    EXPECT_EQ(get_input_conf_display(5), 0);
    EXPECT_EQ(get_input_conf_display(9), 0);  // unlisted seats land on screen 0
    EXPECT_EQ(log.count("screen:0 ______ 5\n"), 1);
    EXPECT_EQ(log.count("         |_____ 1\n"), 1);
}

TEST_F(SeatConfig, MissingFileIsReportedAndUnsupportedOrMalformedSectionLinesAreSkipped)
{
    const std::string path = root.at("/absent.conf");
    EXPECT_EQ(config_init(path.c_str()), -1);
    EXPECT_TRUE(log.has("open file " + path + " failed\n"));
    ASSERT_EQ(load("StartSection Terminal\nScreen 1\nInputDevice 4\nEndSection\n"
                   "StartSection\nStartSection \"Input\"\nusb-a 3\nEndSection\n"),
              0);
    EXPECT_TRUE(log.has("parse error section Terminal is unsurpport\n"));
    EXPECT_TRUE(log.has("Format error : StartSection\n"));
    EXPECT_EQ(terminals[1].inputCount, 0);
    EXPECT_EQ(get_device_seat("usb-a/input0"), 3);
}

// A later terminal with the same screen replaces the first; the first matching prefix wins.
TEST_F(SeatConfig, LaterTerminalReplacesAndFirstMatchingPrefixWins)
{
    ASSERT_EQ(load("StartSection \"Terminal\"\nScreen 2\nInputDevice 1\nInputDevice 3\nEndSection\n"
                   "StartSection \"Terminal\"\nScreen 2\nInputDevice 4\nEndSection\n"
                   "StartSection \"Input\"\nusb-musb-hdrc.1-1 1\nusb-musb-hdrc.1-1.2 2\nEndSection\n"
                   "StartSection \"Input\"\nusb-musb-hdrc.0-1.2 4\nusb-musb-hdrc.0-1 3\nEndSection\n"),
              0);
    EXPECT_EQ(terminals[2].inputCount, 1);
    EXPECT_TRUE(get_input_conf_display(4) == 2 && get_input_conf_display(3) == 0);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.1-1/input0"), 1);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.1-1.2/input0"), 1);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.0-1/input0"), 3);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.0-1.2/input0"), 4);
}

TEST_F(SeatConfig, LinesAreSplitAfter98Characters)
{
    // A 98-character comment, the rest read as a line of its own but counted as one.
    ASSERT_EQ(load("#" + std::string(97, '-') + "StartSection \"Input\"\nusb-a 3\nEndSection\n"), 0);
    EXPECT_EQ(get_device_seat("usb-a/input0"), 3);
    EXPECT_EQ(config_last_stop().line, 3);
}

TEST_F(SeatConfig, AbortReleasesPortRowsButKeepsStoredTerminals)
{
    ASSERT_EQ(load("StartSection \"Terminal\"\nScreen 1\nInputDevice 2\nEndSection\n"
                   "StartSection \"Input\"\nusb-a 1\nusb-b 2\nusb-c\nEndSection\n"),
              -1);
    EXPECT_TRUE(log.has("file error!\n"));
    const config_stop_s& stop = config_last_stop();
    EXPECT_EQ(std::make_tuple(stop.line, stop.section_line, stop.at_end), std::make_tuple(8, 5, false));
    EXPECT_STREQ(stop.text.data(), "usb-c");
    EXPECT_TRUE(std::all_of(device_seats.begin(), device_seats.end(), [](const auto& r) { return r.syspath == nullptr; }));
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

const std::string kTerm = "StartSection \"Terminal\"\n", kInput = "StartSection \"Input\"\n";
const std::string kOutput = "StartSection \"Output\"\n", kEnd = "EndSection\n";
const ConfigCase kGrammar[] = {
    {"LastSectionWithoutEnd", kTerm + kEnd + kInput + "usb-a 1\n", -1},
    {"CommentAsLastLineInOpenSection", kInput + "usb-a 1\n# end", -1},
    {"EndSectionWithoutNewline", kInput + "usb-a 1\nEndSection", 0},
    {"EndSectionAsSubstring", kInput + "usb-a 1\n  xEndSectionx\n", 0},
    {"TextAfterLastSection", kTerm + kEnd + "trailing words\n", 0},
    {"TerminalKeyWithoutValue", kTerm + "Screen\n" + kEnd, -1},
    {"ModeKeyWithoutValue", "StartSection \"Mode\"\nScreenNum\n" + kEnd, -1},
    {"UnknownKeysAreIgnored", kTerm + "Colour blue\n" + kEnd, 0},
    {"FifteenInputRows", kInput + repeat(15, "usb-x 1\n") + kEnd, 0},
    {"SixteenInputRowsOverAllSections", kInput + repeat(10, "usb-x 1\n") + kEnd + kInput + repeat(6, "usb-y 2\n") + kEnd, -1},
    {"ThreeOutputRows", kOutput + repeat(3, "hdmi 1\n") + kEnd, 0},
    {"FourOutputRows", kOutput + repeat(4, "hdmi 1\n") + kEnd, -1},
    {"FifteenInputDevices", kTerm + repeat(15, "InputDevice 1\n") + kEnd, 0},
    {"SixteenInputDevices", kTerm + repeat(16, "InputDevice 1\n") + kEnd, -1},
    {"ScreenThree", kTerm + "Screen 3\n" + kEnd, -1},
    {"NegativeScreen", kTerm + "Screen -1\n" + kEnd, -1},
};
INSTANTIATE_TEST_SUITE_P(Grammar, SeatConfigFile, testing::ValuesIn(kGrammar),
                         [](const testing::TestParamInfo<ConfigCase>& info) { return info.param.name; });

}  // namespace
