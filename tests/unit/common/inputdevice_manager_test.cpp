#include "common/inputdevice_manager.h"

#include <gtest/gtest.h>
#include <linux/input.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "common/cursor_timer_internal.h"
#include "common/inputdevice_manager_internal.h"
#include "common/log.h"
#include "common/multi_config.h"
#include "common/ts_cali.h"
#include "msg_handle_internal.h"
#include "support/log_capture.h"
#include "support/scratch_root.h"

namespace {

// Device nodes are plain files of a scratch directory: they open, take the
// LED writes, and report no axis ranges.
class Registry : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(config_init(testsupport::write_port_conf(root_.path()).c_str()), 0); }
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

TEST_F(Registry, MainTouchscreenSitsOnSeatFive)
{
    ASSERT_EQ(add("usb-musb-hdrc.0-1/input0\n", 3, INPUT_TYPE_TOUCHSCREEN, 1), 0);
    const _InputDev* ts = get_input_info(5);
    ASSERT_NE(ts, nullptr);
    EXPECT_STREQ(ts->name, "touchscreen_main");
    EXPECT_STREQ(ts->path, "usb-musb-hdrc.0-1/input0\n");
    EXPECT_TRUE(ts->usb == 1 && ts->seat == 5 && ts->need_cali == 1 && ts->config_disp == 0);
    EXPECT_GT(ts->fd, 0);
    EXPECT_EQ(monitor_entry(0).fd, ts->fd);
    EXPECT_TRUE(log.has("usb input,seat:5\n"));
    EXPECT_TRUE(log.has("add screen id:0, seat 5 to touchscreen...\n"));
    ASSERT_NE(ts_get_private_data(5), nullptr);
    EXPECT_EQ(ts_get_private_data(5)->ts_type, 0);

    // The same node again is refused without a second record.
    EXPECT_EQ(add("usb-musb-hdrc.0-1/input0\n", 3, INPUT_TYPE_TOUCHSCREEN, 1), -1);
    EXPECT_EQ(chain_length(5), 1);

    ASSERT_EQ(handle_remove_device("usb-musb-hdrc.0-1/input0\n"), 0);
    EXPECT_EQ(get_input_info(5), nullptr);
    EXPECT_EQ(ts_get_private_data(5), nullptr);
    EXPECT_EQ(event_num.load(), 0);
}

TEST_F(Registry, MouseOnSeatTwoCountsOnItsScreen)
{
    ASSERT_EQ(add("usb-musb-hdrc.1-1.2/input0\n", 4, INPUT_TYPE_MOUSE), 0);
    EXPECT_STREQ(get_input_info(2)->name, "touchscreen_sub");
    EXPECT_EQ(get_input_info(2)->config_disp, 1);
    EXPECT_EQ(gs_cursor[1].usb_num.load(), 1);
    ASSERT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2/input0\n"), 0);
    EXPECT_EQ(gs_cursor[1].usb_num.load(), 0);
}

TEST_F(Registry, CompositeDeviceOnSeatOneIsRemovedTogether)
{
    ASSERT_EQ(add("usb-musb-hdrc.1-1.1/input0\n", 1, INPUT_TYPE_KEYBOARD), 0);
    // A keyboard gets its caps lock LED cleared.
    const std::string written = testsupport::read_file(node(1));
    ::input_event led{};
    ASSERT_EQ(written.size(), sizeof led);
    std::memcpy(&led, written.data(), sizeof led);
    EXPECT_TRUE(led.type == EV_LED && led.code == LED_CAPSL && led.value == 0);

    ASSERT_EQ(add("usb-musb-hdrc.1-1.1/input1\n", 2, INPUT_TYPE_MOUSE), 0);
    EXPECT_EQ(chain_length(1), 2);
    EXPECT_EQ(event_num.load(), 2);
    ASSERT_EQ(handle_remove_device("usb-musb-hdrc.1-1.1/input1\n"), 0);
    EXPECT_EQ(get_input_info(1), nullptr);
    EXPECT_EQ(event_num.load(), 0);
    // Its second report finds the seat empty and still succeeds.
    EXPECT_EQ(handle_remove_device("usb-musb-hdrc.1-1.1/input0\n"), 0);
}

TEST_F(Registry, DevicesBehindAHubAreExternDevicesRemovedAloneAndHeldUpToFifteen)
{
    ASSERT_EQ(add("usb-musb-hdrc.1-1.2/input0\n", 1, INPUT_TYPE_KEYBOARD), 0);
    ASSERT_EQ(add("usb-musb-hdrc.1-1.2.3/input0\n", 2, INPUT_TYPE_MOUSE), 0);
    ASSERT_EQ(add("usb-musb-hdrc.1-1.2.4/input0\n", 3, INPUT_TYPE_KEYBOARD), 0);
    EXPECT_EQ(chain_length(2), 1);
    ASSERT_EQ(count_exusb_input.load(), 2);
    EXPECT_EQ(gs_cursor[1].usb_num.load(), 1);

    ASSERT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2.3/input0\n"), 0);
    EXPECT_EQ(count_exusb_input.load(), 1);
    EXPECT_STREQ(extern_input[0].load()->path, "usb-musb-hdrc.1-1.2.4/input0\n");
    EXPECT_EQ(extern_input[1].load(), nullptr);
    EXPECT_EQ(chain_length(2), 1);
    EXPECT_EQ(gs_cursor[1].usb_num.load(), 0);
    EXPECT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2.9/input0\n"), -1);

    for (int i = 1; i < EXTERN_INPUT_MAX; ++i)
        ASSERT_EQ(add("usb-musb-hdrc.1-1.2.1" + std::to_string(i) + "/input0\n", 3 + i, INPUT_TYPE_UNKNOWN), 0);
    EXPECT_EQ(add("usb-musb-hdrc.1-1.2.5/input0\n", 30, INPUT_TYPE_UNKNOWN), -1);
    EXPECT_EQ(count_exusb_input.load(), EXTERN_INPUT_MAX);
    EXPECT_TRUE(log.has("Extern usb input list is full\n"));
}

TEST_F(Registry, BoardPanelIsANonUsbInputAndTheSixteenthIsRefused)
{
    ASSERT_EQ(add("board-tsc/input0\n", 0, INPUT_TYPE_TOUCHSCREEN, 1), 0);
    const _InputDev* panel = nonusb_input[0].load();
    ASSERT_NE(panel, nullptr);
    EXPECT_STREQ(panel->path, "non_usb_path");
    EXPECT_STREQ(panel->name, "touchscreen_main");
    EXPECT_TRUE(panel->usb == 0 && panel->seat == -1);
    EXPECT_NE(ts_get_private_data(0), nullptr);
    EXPECT_TRUE(log.has("non usb input,path:board-tsc/input0\n\n"));

    for (int i = 1; i < NONUSB_INPUT_MAX; ++i)
        ASSERT_EQ(add("board-keys/input0\n", i, INPUT_TYPE_KEYBOARD), 0);
    EXPECT_EQ(add("board-keys/input0\n", 15, INPUT_TYPE_KEYBOARD), -1);
    EXPECT_TRUE(log.has("Non usb input list is full\n"));
    EXPECT_EQ(count_nonusb_input.load(), NONUSB_INPUT_MAX);

    // Its removal reports its kernel path, which the record does not carry:
    // the record stays, the touchscreen data goes.
    EXPECT_EQ(handle_remove_device("board-tsc/input0\n"), -1);
    EXPECT_EQ(count_nonusb_input.load(), NONUSB_INPUT_MAX);
    EXPECT_EQ(ts_get_private_data(0), nullptr);
    EXPECT_EQ(handle_remove_device("non_usb_path"), 0);
    EXPECT_EQ(count_nonusb_input.load(), NONUSB_INPUT_MAX - 1);
}

TEST_F(Registry, UnopenableNodeIsKeptWithoutADescriptor)
{
    ASSERT_EQ(handle_add_device("usb-musb-hdrc.1-1.2/input0\n", "null", "/nonexistent/event7", INPUT_TYPE_MOUSE, 0), 0);
    EXPECT_LT(get_input_info(2)->fd, 1);
    EXPECT_EQ(event_num.load(), 0);
    EXPECT_EQ(gs_cursor[1].usb_num.load(), 0);
    EXPECT_TRUE(log.has("Unable to open evdev device \"/nonexistent/event7\".\n"));
    EXPECT_EQ(handle_remove_device("usb-musb-hdrc.1-1.2/input0\n"), 0);
    EXPECT_FALSE(log.has("add_fd_list para error\n"));
}

TEST_F(Registry, BadArgumentsAndActions)
{
    EXPECT_EQ(handle_add_device(nullptr, "null", "/dev/event1", 1, 0), -1);
    EXPECT_EQ(handle_remove_device(nullptr), -1);
    EXPECT_EQ(log.count("para is error\n"), 2);
    const _HotDev hot{"x", "null", "/dev/event1", 1, 0};
    EXPECT_EQ(do_action(7, &hot), 0);
    EXPECT_EQ(get_input_info(0), nullptr);
    EXPECT_EQ(get_input_info(16), nullptr);
}

TEST(ScreenClients, RegistrationAndClose)
{
    testsupport::LogCapture log;
    EXPECT_EQ(handle_inputsys_init(1, 7), 0);
    EXPECT_EQ(handle_inputsys_init(1, 7), -1);
    EXPECT_TRUE(log.has("screen 1 has been init !!\n"));
    EXPECT_EQ(handle_inputsys_init(3, 8), -1);
    EXPECT_EQ(handle_inputsys_init(0, 0), -1);
    EXPECT_EQ(log.count("handle_inputsys_init para error\n"), 2);
    EXPECT_EQ(handle_inputsys_init(0, 9), 0);

    EXPECT_EQ(find_index_by_fd(7), 1);
    EXPECT_EQ(find_index_by_fd(9), 0);
    EXPECT_EQ(find_index_by_fd(11), -1);
    EXPECT_EQ(handle_inputsys_close(11), -1);
    EXPECT_EQ(handle_inputsys_close(7), 0);
    EXPECT_EQ(gs_clients[1].load(), 0);
    EXPECT_EQ(handle_inputsys_close(9), -1);
    EXPECT_TRUE(log.has("Main screen closed\n"));
    EXPECT_EQ(gs_clients[0].load(), 0);
}

TEST(TouchscreenData, SeatsOutsideTheTableAreRefused)
{
    testsupport::LogCapture log;
    auto* rec = new ts_priv_data_s{};
    EXPECT_EQ(ts_set_private_data(15, rec), -1);
    EXPECT_EQ(ts_get_private_data(-1), nullptr);
    ts_free_private_data(15);
    EXPECT_EQ(log.count("Error, invalid param (usb seat 15)\n"), 2);
    EXPECT_EQ(ts_set_private_data(14, rec), 0);
    EXPECT_EQ(ts_get_private_data(14), rec);
    ts_free_private_data(14);
    EXPECT_EQ(ts_get_private_data(14), nullptr);
}

}  // namespace
