// Lock keys and keyboard LEDs, and the lines logged for every event sent.
#include "common/keyboard_manager.h"

#include "support/unit_common.h"

namespace {

// A keyboard record whose node is a socket, so the LED writes can be read back.
struct Keyboard : testsupport::UnitPeer {
    _InputDev dev;
    explicit Keyboard(int screen, int type = INPUT_TYPE_KEYBOARD)
    {
        dev.fd = daemon;
        dev.type = type;
        dev.config_disp = screen;
    }
    Evs leds()
    {
        const auto raw = drain();
        Evs out;
        for (std::size_t at = 0; at + sizeof(::input_event) <= raw.size(); at += sizeof(::input_event)) {
            const auto* e = reinterpret_cast<const ::input_event*>(raw.data() + at);
            out.push_back({e->type, e->code, e->value});
        }
        return out;
    }
};

// Double-player: each player's lock keys light its own keyboards (chained, behind a hub; not a
// mouse); a client's LED request its own screen's; otherwise the one screen lights them all.
TEST(LockKeys, OneTogglePerPressAndTheLedOnEveryKeyboardOfTheScreen)
{
    testsupport::ScreenClients clients;
    output_info_init();
    Keyboard chained(0), head(0), hub(0), player2(1), mouse(0, INPUT_TYPE_MOUSE);
    head.dev.next.store(&chained.dev);
    chained.dev.next.store(&mouse.dev);
    input_info[0].store(&head.dev);
    input_info[1].store(&player2.dev);
    extern_input[0].store(&hub.dev);
    count_exusb_input.store(1);
    MultiModeInfo dbl{MODE_DOUBLE_PLAYER, {}, {}}, clone{MODE_CLONE, {}, {}};
    ASSERT_EQ(handle_multimode_set(0, &dbl), 0);
    // Press: on; no release seen: not a new press; release: no toggle; next press: off.
    const std::pair<int, testsupport::Ev> steps[] = {
        {1, {28, 1, 1}}, {1, {1, KEY_NUMLOCK, 1}}, {0, {1, KEY_NUMLOCK, 0}}, {1, {28, 1, 0}}, {-1, {1, KEY_A, 1}}};
    for (auto [value, after] : steps) {  // the event as the caller forwards it
        tactord::input_event ev{0, 0, EV_KEY, static_cast<uint16_t>(value < 0 ? KEY_A : KEY_NUMLOCK), value < 0 ? 1 : value};
        EXPECT_EQ(handle_key_lock(&double_screen[0], &ev), 0);
        EXPECT_EQ(brief({ev}), Evs{after});
    }
    const Evs both = {{EV_LED, LED_NUML, 1}, {EV_LED, LED_NUML, 0}}, none, caps = {{EV_LED, LED_CAPSL, 1}};
    for (auto [k, want] : {std::pair{&head, both}, {&chained, both}, {&hub, both}, {&player2, none}, {&mouse, none}})
        EXPECT_EQ(k->leds(), want);
    tactord::input_event led{0, 0, EV_LED, LED_CAPSL, 1};
    EXPECT_EQ(handle_led_ctrl(clients.daemon_fd(1), &led), 0);
    EXPECT_TRUE(player2.leds() == caps && head.leds().empty());
    EXPECT_EQ(handle_led_ctrl(999, &led), -1);
    double_screen[0].lockKey[0].lock_state = 1;
    send_key_lock_state(0);
    EXPECT_EQ(brief(clients.events(0)), (Evs{{28, 0, 1}, {28, 1, 0}, {28, 2, 0}}));

    ASSERT_EQ(handle_multimode_set(0, &clone), 0);
    tactord::input_event press{0, 0, EV_KEY, KEY_CAPSLOCK, 1};
    handle_key_lock(&screen_info, &press);
    for (Keyboard* k : {&head, &chained, &hub, &player2})
        EXPECT_EQ(k->leds(), caps);
    input_info[0].store(nullptr);
    input_info[1].store(nullptr);
    extern_input[0].store(nullptr);
    count_exusb_input.store(0);
}

TEST(EventOutput, SendsToConnectedClientsAndLogsEachEvent)
{
    testsupport::LogCapture log(0);
    testsupport::ScreenClients clients({0});
    const std::pair<tactord::input_event, const char*> cases[] = {
        {{0, 0, 0, 0, 0}, "[0] SYN 0 : 0\n"},      {{0, 0, 1, 0x110, 1}, "[0] key 0x110:press\n"},
        {{0, 0, 1, 30, 0}, "[0] key 0x1e:up\n"},   {{0, 0, 2, 1, -3}, "[0] mouse y : -3\n"},
        {{0, 0, 3, 54, 8}, "[0] ABS y : 8\n"},     {{0, 0, 3, 'Z', 9}, "[0] ABS Z : 9\n"},
        {{0, 0, 33, 1, 0}, "[0] type: 0x21 code: 0x1 val: 0\n"}};
    for (auto [ev, line] : cases) {
        EXPECT_EQ(send_event(0, &ev), 16);
        EXPECT_TRUE(log.has(line)) << line;
    }
    EXPECT_EQ(clients.events(0).size(), std::size(cases));
    tactord::input_event syn{};
    EXPECT_TRUE(send_event(1, &syn) == -1 && send_event(3, &syn) == -1);  // not connected, no client
    EXPECT_EQ(send_event_by_fd(clients.daemon_fd(0), &syn), 16);
    // Appended: GCC 12 reports a false -Wrestrict overlap for "[" + string.
    EXPECT_TRUE(log.has(std::string("[").append(std::to_string(clients.daemon_fd(0) + 5)).append("] SYN 0 : 0\n")));
    EXPECT_EQ(send_event_by_fd(0, &syn), -1);
}

}  // namespace
