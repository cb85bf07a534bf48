// The seat configuration file: ports, terminals, the grammar's refusals and capacities.
#include "common/multi_config.h"

#include "common/multi_config_internal.h"
#include "support/unit_common.h"

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
    int load(const std::string& text) { return root.load_port_conf(text); }
    testsupport::ScratchRoot root;
    testsupport::LogCapture log{LEVEL_DEBUG};
};

// Unlisted seats land on screen 0; seats 1 and 2 are the system tests' (their daemons read this).
TEST_F(SeatConfig, ExampleFileFillsPortsAndTerminalsAndIsPrinted)
{
    ASSERT_EQ(load(testsupport::kExamplePortConf), 0);
    EXPECT_EQ(get_device_seat("usb-musb-hdrc.0-1.4/input0"), 5);  // behind a hub
    for (const char* unknown : {"usb-musb-hdrc.1-1.3/input0", "ALSA", static_cast<const char*>(nullptr)})
        EXPECT_EQ(get_device_seat(unknown), -1);
    EXPECT_STREQ(get_seat_syspath(5), "usb-musb-hdrc.0-1");
    EXPECT_TRUE(get_seat_syspath(3) == nullptr && output_seats[0].syspath == nullptr);
    EXPECT_TRUE(get_input_conf_display(5) == 0 && get_input_conf_display(9) == 0);
    EXPECT_EQ(log.count("screen:0 ______ 5\n"), 1);
    EXPECT_EQ(log.count("         |_____ 1\n"), 1);
}

// Unsupported or malformed section lines are skipped; a later terminal with the same screen
// replaces the first; the first matching prefix wins; lines split after 98 characters count as one.
TEST_F(SeatConfig, SkippedLinesReplacedTerminalsFirstPrefixAndLongLines)
{
    EXPECT_EQ(config_init(root.at("/absent.conf").c_str()), -1);
    EXPECT_TRUE(log.has("open file " + root.at("/absent.conf") + " failed\n"));
    ASSERT_EQ(load("StartSection Terminal\nScreen 1\nInputDevice 4\nEndSection\nStartSection\n"
                   "StartSection \"Terminal\"\nScreen 2\nInputDevice 1\nInputDevice 3\nEndSection\n"
                   "StartSection \"Terminal\"\nScreen 2\nInputDevice 4\nEndSection\n"
                   "StartSection \"Input\"\nusb-musb-hdrc.1-1 1\nusb-musb-hdrc.1-1.2 2\nEndSection\n"
                   "StartSection \"Input\"\nusb-musb-hdrc.0-1.2 4\nusb-musb-hdrc.0-1 3\nEndSection\n"),
              0);
    EXPECT_TRUE(log.has("parse error section Terminal is unsurpport\n") && log.has("Format error : StartSection\n"));
    EXPECT_TRUE(terminals[1].inputCount == 0 && terminals[2].inputCount == 1);
    EXPECT_TRUE(get_input_conf_display(4) == 2 && get_input_conf_display(3) == 0);
    for (auto [port, seat] : {std::pair{"usb-musb-hdrc.1-1/input0", 1}, {"usb-musb-hdrc.1-1.2/input0", 1},
                              {"usb-musb-hdrc.0-1/input0", 3}, {"usb-musb-hdrc.0-1.2/input0", 4}})
        EXPECT_EQ(get_device_seat(port), seat) << port;
    ASSERT_EQ(load("#" + std::string(97, '-') + "StartSection \"Input\"\nusb-a 3\nEndSection\n"), 0);
    EXPECT_EQ(get_device_seat("usb-a/input0"), 3);
    EXPECT_EQ(config_last_stop().line, 3);
}

// An abort releases the port rows but keeps the terminals stored; every abort, capacity overflows
// included, is reported as "file error!".
TEST_F(SeatConfig, GrammarCapacitiesAndWhatAnAbortKeeps)
{
    ASSERT_EQ(load("StartSection \"Terminal\"\nScreen 1\nInputDevice 2\nEndSection\n"
                   "StartSection \"Input\"\nusb-a 1\nusb-b 2\nusb-c\nEndSection\n"),
              -1);
    const config_stop_s& stop = config_last_stop();
    EXPECT_EQ(std::make_tuple(stop.line, stop.section_line, stop.at_end), std::make_tuple(8, 5, false));
    EXPECT_STREQ(stop.text.data(), "usb-c");
    EXPECT_TRUE(std::all_of(device_seats.begin(), device_seats.end(), [](const auto& r) { return r.syspath == nullptr; }));
    EXPECT_EQ(get_device_seat("usb-a/input0"), -1);
    EXPECT_EQ(get_input_conf_display(2), 1);
    const std::string term = "StartSection \"Terminal\"\n", input = "StartSection \"Input\"\n";
    const std::string output = "StartSection \"Output\"\n", end = "EndSection\n";
    const std::pair<std::string, int> cases[] = {
        {term + end + input + "usb-a 1\n", -1},  // the last section has no end
        {input + "usb-a 1\n# end", -1},          // a comment as the last line of an open section
        {input + "usb-a 1\nEndSection", 0},      // no final newline
        {input + "usb-a 1\n  xEndSectionx\n", 0},
        {term + end + "trailing words\n", 0},
        {term + "Screen\n" + end, -1},
        {"StartSection \"Mode\"\nScreenNum\n" + end, -1},
        {term + "Colour blue\n" + end, 0},  // unknown keys are ignored
        {input + repeat(15, "usb-x 1\n") + end, 0},
        {input + repeat(10, "usb-x 1\n") + end + input + repeat(6, "usb-y 2\n") + end, -1},  // over all sections
        {output + repeat(3, "hdmi 1\n") + end, 0},
        {output + repeat(4, "hdmi 1\n") + end, -1},
        {term + repeat(15, "InputDevice 1\n") + end, 0},
        {term + repeat(16, "InputDevice 1\n") + end, -1},
        {term + "Screen 3\n" + end, -1},
        {term + "Screen -1\n" + end, -1},
    };
    for (const auto& [text, expected] : cases) {
        const int before = log.count("file error!\n");
        EXPECT_EQ(load(text), expected) << text;
        EXPECT_EQ(log.count("file error!\n") - before, expected == -1 ? 1 : 0) << text;
    }
}

}  // namespace
