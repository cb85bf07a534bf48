// The device registry (seats, chains, the non-USB and hub tables, removal while a pass runs) and
// the screen clients' registration; device nodes are files of a scratch directory.
#include "common/inputdevice_manager.h"

#include "common/ts_cali.h"
#include "support/unit_common.h"

namespace {

class Registry : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(root_.load_port_conf(), 0); }
    std::string node(int n)
    {
        const std::string path = root_.at("/event" + std::to_string(n));
        if (access(path.c_str(), F_OK) != 0)
            testsupport::write_file(path, "");
        return path;
    }
    int add(const std::string& phys, int n, int type, int need_cali = 0)
    {
        return handle_add_device(phys.c_str(), "null", node(n).c_str(), type, need_cali);
    }
    static int chain_length(int seat)
    {
        int n = 0;
        for (const _InputDev* d = get_input_info(seat); d != nullptr; d = d->next.load())
            ++n;
        return n;
    }
    testsupport::ScratchRoot root_;
    testsupport::LogCapture log{LEVEL_DEBUG};
};

std::pair<int, int> published{0, 0};  // seat and calibration flag as handed to the main loop

// The same node again is refused; another node of the device is chained; all go together. A record
// is complete before the main loop can reach it.
TEST_F(Registry, MainTouchscreenIsHeldOnceCompleteBeforeTheLoopSeesItAndGoesWithItsRecord)
{
    const std::string port = "usb-musb-hdrc.0-1/input0\n";
    ASSERT_EQ(add(port, 3, INPUT_TYPE_TOUCHSCREEN, 1), 0);
    const _InputDev* ts = get_input_info(5);
    ASSERT_TRUE(ts != nullptr && ts->usb == 1 && ts->need_cali == 1 && ts_get_private_data(5) != nullptr);
    EXPECT_EQ(monitor_entry(0).fd, ts->fd);
    EXPECT_EQ(add(port, 3, INPUT_TYPE_TOUCHSCREEN, 1), -1);
    ASSERT_EQ(add(port, 4, INPUT_TYPE_TOUCHSCREEN, 1), 0);
    EXPECT_EQ(chain_length(5), 2);
    for (_InputDev* d = get_input_info(5); d != nullptr; d = d->next.load())
        ASSERT_NE(GetDownSendInfo(d), nullptr);
    ASSERT_EQ(handle_remove_device(port.c_str()), 0);
    for (const DownSendInfo& info : downSendInfoArray)
        EXPECT_EQ(info.dev.load(), nullptr);  // the chained one's too
    EXPECT_TRUE(get_input_info(5) == nullptr && ts_get_private_data(5) == nullptr && event_num.load() == 0);

    monitor_add_observer = [](const EventHandleRec& rec) {
        const auto* d = static_cast<_InputDev*>(rec.para);
        published = {d->seat, d->need_cali};
    };
    for (auto [phys, seat] : {std::pair{"usb-musb-hdrc.0-1/input0", 5}, {"board-tsc/input0", -1}}) {
        ASSERT_EQ(add(phys, seat + 2, INPUT_TYPE_TOUCHSCREEN, 1), 0);
        EXPECT_EQ(published, std::make_pair(seat, 1)) << phys;
        published = {0, 0};
    }
    monitor_add_observer = nullptr;
}

TEST_F(Registry, DevicesBehindAHubAreExternDevicesRemovedAloneAndHeldUpToFifteen)
{
    ASSERT_EQ(add("usb-musb-hdrc.1-1.2/input0\n", 1, INPUT_TYPE_KEYBOARD), 0);
    ASSERT_EQ(add("usb-musb-hdrc.1-1.2.3/input0\n", 2, INPUT_TYPE_MOUSE), 0);
    ASSERT_EQ(add("usb-musb-hdrc.1-1.2.4/input0\n", 3, INPUT_TYPE_KEYBOARD), 0);
    EXPECT_TRUE(count_exusb_input.load() == 2 && chain_length(2) == 1 && gs_cursor[1].usb_num.load() == 1);
    ASSERT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2.3/input0\n"), 0);
    EXPECT_EQ(count_exusb_input.load(), 1);
    EXPECT_STREQ(extern_input[0].load()->path, "usb-musb-hdrc.1-1.2.4/input0\n");
    EXPECT_TRUE(extern_input[1].load() == nullptr && chain_length(2) == 1 && gs_cursor[1].usb_num.load() == 0);
    EXPECT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2.9/input0\n"), -1);
    for (int i = 1; i < EXTERN_INPUT_MAX; ++i)
        ASSERT_EQ(add("usb-musb-hdrc.1-1.2.1" + std::to_string(i) + "/input0\n", 3 + i, INPUT_TYPE_UNKNOWN), 0);
    EXPECT_EQ(add("usb-musb-hdrc.1-1.2.5/input0\n", 30, INPUT_TYPE_UNKNOWN), -1);
    EXPECT_TRUE(count_exusb_input.load() == EXTERN_INPUT_MAX && log.has("Extern usb input list is full\n"));
}

// Removal by kernel path, which the record lacks: the record stays, the touchscreen data goes.
TEST_F(Registry, BoardPanelIsANonUsbInputAndTheSixteenthIsRefused)
{
    ASSERT_EQ(add("board-tsc/input0\n", 0, INPUT_TYPE_TOUCHSCREEN, 1), 0);
    const _InputDev* panel = nonusb_input[0].load();
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(!strcmp(panel->path, "non_usb_path") && !strcmp(panel->name, "touchscreen_main"));
    EXPECT_TRUE(panel->usb == 0 && panel->seat == -1 && ts_get_private_data(0) != nullptr);
    EXPECT_TRUE(log.has("non usb input,path:board-tsc/input0\n\n"));  // the phys text keeps its line feed
    for (int i = 1; i < NONUSB_INPUT_MAX; ++i)
        ASSERT_EQ(add("board-keys/input0\n", i, INPUT_TYPE_KEYBOARD), 0);
    EXPECT_EQ(add("board-keys/input0\n", 15, INPUT_TYPE_KEYBOARD), -1);
    EXPECT_TRUE(log.has("Non usb input list is full\n"));
    EXPECT_EQ(handle_remove_device("board-tsc/input0\n"), -1);
    EXPECT_TRUE(count_nonusb_input.load() == NONUSB_INPUT_MAX && ts_get_private_data(0) == nullptr);
    EXPECT_EQ(handle_remove_device("non_usb_path"), 0);
    EXPECT_EQ(count_nonusb_input.load(), NONUSB_INPUT_MAX - 1);
}

// The -1 of a failed open reaches the monitor list, which refuses it; unknown actions do nothing.
TEST_F(Registry, BadArgumentsAreRefusedAndAnUnopenableNodeIsKeptWithoutADescriptor)
{
    EXPECT_EQ(handle_add_device(nullptr, "null", "/dev/event1", 1, 0), -1);
    EXPECT_EQ(handle_remove_device(nullptr), -1);
    EXPECT_EQ(log.count("para is error\n"), 2);
    const _HotDev hot{"x", "null", "/dev/event1", 1, 0};
    EXPECT_EQ(do_action(7, &hot), 0);
    ASSERT_EQ(handle_add_device("usb-musb-hdrc.1-1.2/input0\n", "null", "/nonexistent/event7", INPUT_TYPE_MOUSE, 0), 0);
    EXPECT_TRUE(get_input_info(2)->fd < 1 && event_num.load() == 0 && gs_cursor[1].usb_num.load() == 0);
    EXPECT_TRUE(log.has("Unable to open evdev device \"/nonexistent/event7\".\n"));
    EXPECT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2/input0\n"), 0);
    EXPECT_TRUE(log.has("add_fd_list para error\n"));
}

// Seats outside the 15-entry table count as on no configured port; of two rows sharing seat 3,
// the first prefix, longer than the path, is not read past the path's end.
TEST_F(Registry, SeatsOutsideTheTableAndLongerPrefixesIndexAndReadNothingBeyond)
{
    ASSERT_EQ(root_.load_port_conf("StartSection \"Input\"\n usb-x 20\n usb-y 0\n usb-z -3\n usb-w 16\n"
                                   " usb-a.1-1.1.7.7.7.7 3\n usb-a.1-1 3\nEndSection\n"),
              0);
    int n = 10;
    for (const char* port : {"usb-x/input0", "usb-y/input0", "usb-z/input0", "usb-w/input0", "usb-x.2/input0"}) {
        const int before = count_nonusb_input.load();
        ASSERT_EQ(add(port, ++n, INPUT_TYPE_TOUCHSCREEN, 1), 0) << port;
        ASSERT_EQ(count_nonusb_input.load(), before + 1) << port;
        EXPECT_LE(nonusb_input[before].load()->seat, 0) << port;
        EXPECT_EQ(handle_remove_device(port), -1) << port;  // like any non-USB node
    }
    const std::unique_ptr<char, decltype(&std::free)> path(strdup("usb-a.1-1"), &std::free);  // exactly as long
    ASSERT_EQ(handle_add_device(path.get(), "null", node(1).c_str(), INPUT_TYPE_KEYBOARD, 0), 0);
    EXPECT_EQ(chain_length(3), 1);
    EXPECT_EQ(handle_remove_device(path.get()), 0);
    for (int seat = 1; seat <= INPUT_SEAT_MAX; ++seat)
        EXPECT_EQ(get_input_info(seat), nullptr);
}

TEST_F(Registry, ADeviceRemovedWhileItsHandlerRunsLivesUntilThePassEnds)
{
    const std::string fifo = root_.at("/event9");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(handle_add_device("usb-musb-hdrc.1-1.2/input0", "null", fifo.c_str(), INPUT_TYPE_KEYBOARD, 0), 0);
    const _InputDev* dev = get_input_info(2);
    ASSERT_NE(dev, nullptr);
    const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    const ::input_event raw{};
    ASSERT_EQ(write(writer, &raw, sizeof raw), static_cast<ssize_t>(sizeof raw));
    {
        std::atomic<int> fd{0};
        testsupport::HeldDispatch pass(dev->fd, [&] { fd.store(dev->fd); });
        pass.go();
        ASSERT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2/input0"), 0);
        EXPECT_TRUE(pass.finished() && fd.load() > 0);
    }
    close(writer);
}

// A screen is registered once, by a descriptor above 0; the main screen's close answers -1.
TEST(ScreenClients, RegistrationAndClose)
{
    testsupport::LogCapture log;
    EXPECT_EQ(handle_inputsys_init(1, 7), 0);
    for (auto [screen, fd] : {std::pair{1, 7}, {3, 8}, {0, 0}})
        EXPECT_EQ(handle_inputsys_init(screen, fd), -1) << screen;
    EXPECT_EQ(log.count("handle_inputsys_init para error\n"), 2);
    EXPECT_EQ(handle_inputsys_init(0, 9), 0);
    EXPECT_TRUE(find_index_by_fd(7) == 1 && find_index_by_fd(9) == 0 && find_index_by_fd(11) == -1);
    EXPECT_EQ(handle_inputsys_close(11), -1);
    EXPECT_EQ(handle_inputsys_close(7), 0);
    EXPECT_EQ(handle_inputsys_close(9), -1);
    EXPECT_TRUE(gs_clients[0].load() == 0 && gs_clients[1].load() == 0 && log.has("Main screen closed\n"));
}

}  // namespace
