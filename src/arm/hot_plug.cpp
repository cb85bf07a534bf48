#include "arm/hot_plug.h"

#include <fcntl.h>
#include <linux/input.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "arm/hot_plug_internal.h"
#include "common/inputdevice_manager.h"
#include "common/log.h"
#include "common/usb_gun/usblog.h"
#include "common/worker_thread.h"

TactordSwitchCtrl_t TactordCtrl{};
std::atomic<int> gs_udev_fd{0};

static_assert(EV_MAX == 31 && ABS_MAX == 63 && KEY_MAX == 767 && REL_MAX == 15);

namespace {

constexpr useconds_t SCAN_PERIOD_US = 200000;

template <std::size_t N>
bool test_bit(const std::array<uint8_t, N>& bits, unsigned bit)
{
    return bit / 8 < N && ((bits[bit / 8] >> (bit % 8)) & 1) != 0;
}

// Reads up to len-1 bytes of an open descriptor into buf, terminated.
void read_text(int fd, char* buf, std::size_t len)
{
    std::memset(buf, 0, len);
    const ssize_t n = read(fd, buf, len - 1);
    if (n < 0)
        buf[0] = '\0';
}

void device_added(const char* devnode, const char* syspath)
{
    int need_cali = 0;
    int type = INPUT_TYPE_UNKNOWN;
    switch (Get_EventDeviceType(devnode, &need_cali)) {
    case USB_INPUT_TOUCHSCREEN:
        type = INPUT_TYPE_TOUCHSCREEN;
        TLOG(LEVEL_WARN, "%s is touchscreen...\n", devnode);
        break;
    case USB_INPUT_KEYBOARD:
        type = INPUT_TYPE_KEYBOARD;
        TLOG(LEVEL_WARN, "%s is keyboard...\n", devnode);
        break;
    case USB_INPUT_MOUSE:
        type = INPUT_TYPE_MOUSE;
        TLOG(LEVEL_WARN, "%s is mouse...\n", devnode);
        break;
    default:
        TLOG(LEVEL_ERROR, "This is not a USB device or type is not identified\n");
        break;
    }
    // The sysfs name is not passed on: the registry names devices by seat.
    const _HotDev dev{syspath, "null", devnode, type, need_cali};
    do_action(1, &dev);
}

void device_removed(const char* syspath)
{
    const _HotDev dev{syspath, nullptr, nullptr, 0, 0};
    do_action(0, &dev);
}

void scan_slot(EvtCtrl_t& s, int i)
{
    if (s.bScanCtrl == 0 && access(s.devnode, F_OK) == 0 && s.dev_flag == 0) {
        const int port_fd = open(s.get_port, O_RDONLY);
        if (port_fd < 0)
            std::printf("open %s error! \n", s.get_port);
        s.bExit = 1;
        s.bOpen = 1;
        s.evt_index = i;
        // An unreadable phys file leaves the previous contents in place.
        if (port_fd >= 0) {
            read_text(port_fd, s.syspath, sizeof s.syspath);
            close(port_fd);
        }
        // The name is read but not used further; the failure message names
        // the phys file, as the monitor always has.
        const int name_fd = open(s.get_name, O_RDONLY);
        if (name_fd < 0)
            std::printf("open %s error! \n", s.get_port);
        char name[257];
        std::memset(name, 0, sizeof name);
        if (name_fd >= 0)
            read_text(name_fd, name, sizeof name);
        device_added(s.devnode, s.syspath);
        s.dev_flag = 1;
        if (name_fd >= 0)
            close(name_fd);
    }
    if (s.bScanCtrl == 0 && access(s.devnode, F_OK) != 0 && s.dev_flag == 1) {
        s.bExit = 0;
        s.bOpen = 0;
        s.evt_index = 0;
        device_removed(s.syspath);
        s.dev_flag = 0;
        std::printf("%s fail to connect!\n", s.devnode);
    }
    if (s.bScanCtrl == 1) {
        if (s.bExit == 1 && s.bOpen == 1) {
            device_removed(s.syspath);
            s.bOpen = 0;
            s.dev_flag = 0;
            usblog_log_write(__func__, __LINE__, "Insert Scan event%d...\r\n", i);
        }
        if (access(s.devnode, F_OK) != 0) {
            s.bScanCtrl = 0;
            usblog_log_write(__func__, __LINE__, "Remove Scan event%d...\r\n", i);
        }
    }
}

void* device_event_handle_proc(void*)
{
    hotplug_fill_paths();
    for (;;) {
        hotplug_scan_pass();
        usleep(SCAN_PERIOD_US);
    }
    return nullptr;
}

// The analysis itself; *need_cali is written where a touch panel is seen,
// even when a later test (a relative mouse) decides otherwise.
int classify_kind(const evdev_bitmaps& b, int* need_cali)
{
    int result = -1;
    bool is_mouse = false;
    bool is_touchpad = false;

    if (test_bit(b.ev, EV_ABS)) {
        if (!test_bit(b.ev, EV_KEY) && test_bit(b.abs, ABS_X) && test_bit(b.abs, ABS_Y) && test_bit(b.abs, ABS_Z)) {
            TLOG(LEVEL_INFO, "ACCELEROMETER  device type...\n");
            return USB_INPUT_OTHER;
        }
        if (test_bit(b.abs, ABS_X) && test_bit(b.abs, ABS_Y)) {
            if (test_bit(b.key, BTN_TOOL_PEN) || test_bit(b.key, BTN_STYLUS)) {
                TLOG(LEVEL_INFO, "TABLET device type...\n");
                result = USB_INPUT_OTHER;
            } else if (test_bit(b.key, BTN_TOOL_FINGER)) {
                is_touchpad = true;
            } else if (test_bit(b.key, BTN_JOYSTICK) || test_bit(b.key, BTN_GAMEPAD) || test_bit(b.key, BTN_1)) {
                TLOG(LEVEL_INFO, "JOYSTICK device type...\n");
                result = USB_INPUT_OTHER;
            } else if (test_bit(b.key, BTN_RIGHT)) {
                is_mouse = true;
            } else if (test_bit(b.key, BTN_TOUCH) || test_bit(b.key, BTN_LEFT)) {
                TLOG(LEVEL_INFO, "Info:TOUCHSCREEN device type...\n");
                result = USB_INPUT_TOUCHSCREEN;
                // A multi-touch panel reports screen coordinates already.
                if (need_cali != nullptr)
                    *need_cali = test_bit(b.abs, ABS_MT_POSITION_X) ? 0 : 1;
            }
        }
    }

    // A relative pointer is a mouse whatever its absolute axes say.
    if (test_bit(b.ev, EV_REL) && test_bit(b.rel, REL_X) && test_bit(b.rel, REL_Y) && test_bit(b.key, BTN_LEFT)) {
        TLOG(LEVEL_INFO, "MOUSE device type...\n");
        return USB_INPUT_MOUSE;
    }
    if (is_mouse) {
        TLOG(LEVEL_INFO, "MOUSE device type...\n");
        return USB_INPUT_MOUSE;
    }
    if (is_touchpad) {
        TLOG(LEVEL_INFO, "TOUCHPAD device type...\n");
        result = USB_INPUT_OTHER;
    }

    bool has_keys = false;
    for (unsigned k = 0; k < 256 && !has_keys; ++k)
        has_keys = test_bit(b.key, k);
    for (unsigned k = 0x160; k <= 0x2BF && !has_keys; ++k) {
        if (test_bit(b.key, k)) {
            TLOG(LEVEL_INFO, "Found key %x in high block\n", k);
            has_keys = true;
        }
    }
    if (!has_keys)
        return result;

    TLOG(LEVEL_INFO, "KEY device type...\n");
    for (unsigned k = 1; k < 32; ++k) {
        if (!test_bit(b.key, k))
            return USB_INPUT_OTHER;
    }
    TLOG(LEVEL_INFO, "KEYBOARD device type...\n");
    return USB_INPUT_KEYBOARD;
}

}  // namespace

int classify_event_device(const evdev_bitmaps& b, int* need_cali)
{
    // Only a device classified as a touchscreen says whether it needs
    // calibration: a relative mouse that also carries ABS_X/ABS_Y and
    // BTN_TOUCH must not send its events to the touch calibration.
    int cali = -1;
    const int kind = classify_kind(b, &cali);
    if (kind == USB_INPUT_TOUCHSCREEN && cali >= 0 && need_cali != nullptr)
        *need_cali = cali;
    return kind;
}

int Get_EventDeviceType(const char* devnode, int* need_cali)
{
    if (devnode == nullptr || access(devnode, F_OK) != 0) {
        TLOG(LEVEL_ERROR, "path not exist...\n");
        return USB_INPUT_UNKNOW;
    }
    const int fd = open(devnode, O_RDONLY | O_NONBLOCK);
    if (fd < 0) {
        TLOG(LEVEL_ERROR, "open %s failure...\n", devnode);
        return USB_INPUT_UNKNOW;
    }
    // The request lengths are the highest code of each class, not byte
    // counts; the kernel copies no more than the bitmap's real size.
    evdev_bitmaps bits{};
    ioctl(fd, EVIOCGBIT(0, EV_MAX), bits.ev.data());
    ioctl(fd, EVIOCGBIT(EV_ABS, ABS_MAX), bits.abs.data());
    ioctl(fd, EVIOCGBIT(EV_KEY, KEY_MAX), bits.key.data());
    ioctl(fd, EVIOCGBIT(EV_REL, REL_MAX), bits.rel.data());
    close(fd);
    return classify_event_device(bits, need_cali);
}

void hotplug_fill_paths()
{
    std::lock_guard<std::mutex> guard(TactordCtrl.mutex_ctrl);
    for (int i = 0; i < EVT_SLOT_NUM; ++i) {
        EvtCtrl_t& s = TactordCtrl.evtctrl[i];
        std::snprintf(s.devnode, sizeof s.devnode, "/dev/event%d", i);
        std::snprintf(s.get_port, sizeof s.get_port, "/sys/class/input/event%d/device/phys", i);
        std::snprintf(s.get_name, sizeof s.get_name, "/sys/class/input/event%d/device/name", i);
    }
}

void hotplug_scan_pass()
{
    std::lock_guard<std::mutex> guard(TactordCtrl.mutex_ctrl);
    for (int i = 0; i < EVT_SLOT_NUM; ++i)
        scan_slot(TactordCtrl.evtctrl[i], i);
}

int device_init()
{
    {
        // The mutex is built once with the table and lives for the process:
        // a restart clears the slots under it rather than re-creating a
        // mutex that an older thread may hold.
        std::lock_guard<std::mutex> guard(TactordCtrl.mutex_ctrl);
        TactordCtrl.evtctrl = {};
    }
    start_worker_thread(device_event_handle_proc, nullptr);  // result not checked
    return 0;
}

int start_hotplug_service()
{
    gs_udev_fd.store(1);
    device_init();
    return 0;
}

void stop_hotplug_service()
{
    if (gs_udev_fd.load() != 0)
        gs_udev_fd.store(0);
}

void close_udev_monitor(int)
{
    stop_hotplug_service();
}

void restart_hotplug_service()
{
    stop_hotplug_service();
    start_hotplug_service();
}

int RMEventFromTactord(int n)
{
    usblog_log_write(__func__, __LINE__, "Remove event%d from Tactord...\r\n", n);
    std::lock_guard<std::mutex> guard(TactordCtrl.mutex_ctrl);
    for (EvtCtrl_t& s : TactordCtrl.evtctrl) {
        if (s.evt_index == n)
            s.bScanCtrl = 1;
    }
    return 0;
}

int ADEventToTactord(int n)
{
    usblog_log_write(__func__, __LINE__, "Add event%d to Tactord...\r\n", n);
    std::lock_guard<std::mutex> guard(TactordCtrl.mutex_ctrl);
    for (EvtCtrl_t& s : TactordCtrl.evtctrl) {
        if (s.evt_index == n && s.bScanCtrl != 0)
            s.bScanCtrl = 0;
    }
    return 0;
}
