// What the tools print for each record, event names both ways, and command-line words.
#include "client/record_text.h"

#include "client/args.h"
#include "client/input_names.h"
#include "support/unit_common.h"

namespace {

using tactord::input_event;

TEST(ToolText, RecordsInWordsAndEventNamesNumbersListsAndSecondsParsed)
{
    const struct {
        input_event ev;
        const char* text;
    } cases[] = {
        {{5, 6, EV_KEY, KEY_A, 1}, "EV_KEY KEY_A press"},
        {{0, 0, EV_KEY, BTN_LEFT, 0}, "EV_KEY BTN_LEFT release"},  // not the range name BTN_MOUSE
        {{0, 0, EV_KEY, KEY_CAPSLOCK, 2}, "EV_KEY KEY_CAPSLOCK repeat"},
        {{0, 0, EV_KEY, 199, 1}, "EV_KEY code 0xc7 press"},
        {{0, 0, EV_SYN, SYN_REPORT, 0}, "EV_SYN SYN_REPORT"},
        {{0, 0, EV_ABS, ABS_MT_POSITION_X, -3}, "EV_ABS ABS_MT_POSITION_X -3"},
        {{0, 0, EV_LED, LED_CAPSL, 1}, "EV_LED LED_CAPSL on"},
        {{0, 0, 26, 1, 0}, "focus lost"},
        {{0, 0, 27, 0, 0}, "cursor gained"},
        {{0, 0, 27, 7, 0}, "cursor code 7"},
        {{0, 0, 28, 1, 1}, "lock Num on"},
        {{0, 0, 28, 9, 0}, "lock code 9 off"},
        {{0, 0, 35, BTN_TOUCH, 1}, "locked touch EV_KEY BTN_TOUCH press"},
        {{0, 0, 37, ABS_X, 9}, "locked touch EV_ABS ABS_X 9"},
        {{0, 0, 0x55, 3, 4}, "type 0x55 code 0x3 4"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(tools::describe_event(c.ev), c.text);
    EXPECT_EQ(tools::event_json({5, 6, EV_KEY, KEY_A, 1}),
              R"({"record":"event","sec":5,"usec":6,"type":1,"code":30,"value":1,"type_name":"EV_KEY",)"
              R"("code_name":"KEY_A","text":"EV_KEY KEY_A press"})");
    EXPECT_EQ(tools::event_json({0, 0, 28, 0, 1}),
              R"({"record":"lock","sec":0,"usec":0,"type":28,"code":0,"value":1,"text":"lock Caps on"})");

    SystemMsg m{};
    m.type = TYPE_GET_VERSION;  // text fields read no further than their 16 characters
    std::memset(m.data.version.tactordVer.data(), 'v', 16);
    EXPECT_EQ(tools::describe_reply(m), "reply TYPE_GET_VERSION: tactord vvvvvvvvvvvvvvvv, agent -");
    m = {};
    m.type = TYPE_GET_IPC_WIN_INFO;
    m.data.ipc_win_info = {1, 1, {10, 20, 30, 40}};
    EXPECT_EQ(tools::describe_reply(m), "reply TYPE_GET_IPC_WIN_INFO: open on screen 1 (10,30)-(20,40)");
    m = {};
    m.type = 99;
    EXPECT_EQ(tools::describe_reply(m), "reply type 99: value 0");

    EXPECT_EQ(tools::mode_name(0), "none");
    EXPECT_EQ(tools::mode_name(MODE_EXTERN | MODE_IPC_WINDOW | MODE_IPC_EXTERN), "extern ipc-window ipc-extern");
    EXPECT_EQ(tools::mode_name(MODE_CLONE | 0x40), "clone 0x40");
    EXPECT_EQ(tools::parse_mode_word("double-player"), MODE_DOUBLE_PLAYER);
    EXPECT_FALSE(tools::parse_mode_word("ipc-window"));  // the window has requests of its own

    EXPECT_STREQ(tools::event_type_name(EV_REL), "EV_REL");
    EXPECT_EQ(tools::event_type_name(0x1f), nullptr);
    EXPECT_TRUE(tools::parse_event_type("EV_ABS") == EV_ABS && tools::parse_event_type("0x11") == EV_LED);
    EXPECT_EQ(tools::parse_event_code(EV_KEY, "BTN_MOUSE"), BTN_LEFT);  // a range name still parses
    EXPECT_TRUE(!tools::parse_event_code(EV_REL, "KEY_A") && !tools::parse_event_code(EV_KEY, "65536"));
    EXPECT_EQ(tools::parse_code_name("ABS_MT_SLOT"), std::make_pair(uint16_t{EV_ABS}, uint16_t{ABS_MT_SLOT}));
    EXPECT_EQ(tools::parse_code_name("EV_KEY"), std::nullopt);
    EXPECT_TRUE(tools::parse_integer("-5", -10, 10) == -5 && tools::parse_integer("0x10", 0, 100) == 16);
    for (const char* bad : {"", "-", "5x", "11", "99999999999999999999"})
        EXPECT_EQ(tools::parse_integer(bad, -10, 10), std::nullopt) << bad;
    EXPECT_EQ(tools::parse_list("1,2,3", 3, 0, 3), (std::vector<long long>{1, 2, 3}));
    for (const char* bad : {"1,2", "1,2,3,4", "1,,3", "1,2,9", "1,2,3,"})
        EXPECT_EQ(tools::parse_list(bad, 3, 0, 3), std::nullopt) << bad;
    EXPECT_EQ(tools::parse_seconds("0.5", 10), 0.5);
    for (const char* bad : {"", "-1", "nan", "11", "2s"})
        EXPECT_EQ(tools::parse_seconds(bad, 10), std::nullopt) << bad;
}

}  // namespace
