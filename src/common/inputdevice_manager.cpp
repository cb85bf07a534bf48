#include "common/inputdevice_manager.h"

#include <linux/input.h>
#include <sys/ioctl.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "common/cursor_timer.h"
#include "common/evdev_msg.h"
#include "common/inputdevice_manager_internal.h"
#include "common/inputevent_handle.h"
#include "common/keyboard_manager.h"
#include "common/log.h"
#include "common/multi_config.h"
#include "common/screen_manager.h"
#include "common/ts_cali.h"
#include "msg_handle.h"

static_assert(sizeof(tactord::input_absinfo) == sizeof(::input_absinfo));
static_assert(offsetof(tactord::input_absinfo, minimum) == offsetof(::input_absinfo, minimum));
static_assert(offsetof(tactord::input_absinfo, maximum) == offsetof(::input_absinfo, maximum));
static_assert(offsetof(tactord::input_absinfo, resolution) == offsetof(::input_absinfo, resolution));

std::array<std::atomic<int>, SCREEN_COUNT> gs_clients{};
std::array<std::atomic<_InputDev*>, INPUT_SEAT_MAX> input_info{};
std::array<std::atomic<_InputDev*>, NONUSB_INPUT_MAX> nonusb_input{};
std::atomic<int> count_nonusb_input{0};
std::array<std::atomic<_InputDev*>, EXTERN_INPUT_MAX> extern_input{};
std::atomic<int> count_exusb_input{0};

namespace {

constexpr int MAIN_TOUCH_SEAT = 5;
constexpr const char* NON_USB_PATH = "non_usb_path";

char* dup_string(const char* s)
{
    return s != nullptr ? strdup(s) : nullptr;
}

void read_abs_ranges(_InputDev* dev)
{
    // A node that cannot report a range keeps 0..0.
    ioctl(dev->fd, EVIOCGABS(ABS_X), &dev->abs[0]);
    ioctl(dev->fd, EVIOCGABS(ABS_Y), &dev->abs[1]);
}

// Removes entry i of a dense table by shifting the later entries down.
template <std::size_t N>
void compact(std::array<std::atomic<_InputDev*>, N>& table, std::atomic<int>& count, int i)
{
    const int n = count.load();
    table[i].store(nullptr);
    for (int j = i; j + 1 < n; ++j)
        table[j].store(table[j + 1].load());
    count.store(n - 1);
    table[n - 1].store(nullptr);
}

// Takes the first device whose path equals path out of a dense table
// (shifting the later entries down); null when there is none.
template <std::size_t N>
_InputDev* take_by_path(std::array<std::atomic<_InputDev*>, N>& table, std::atomic<int>& count, const char* path)
{
    const int n = count.load();
    for (int i = 0; i < n && i < static_cast<int>(N); ++i) {
        _InputDev* dev = table[i].load();
        if (dev != nullptr && dev->path != nullptr && std::strcmp(dev->path, path) == 0) {
            compact(table, count, i);
            return dev;
        }
    }
    return nullptr;
}

bool same_string(const char* a, const char* b)
{
    return a != nullptr && b != nullptr ? std::strcmp(a, b) == 0 : a == b;
}

void new_ts_priv_data(int seat, int screen, int need_cali)
{
    if (!(seat < TS_SEAT_MAX && (need_cali == 0 || need_cali == 1)))
        TLOG(LEVEL_ERROR, "the new ts input para error\n");
    auto* ts = new (std::nothrow) ts_priv_data_s{};
    if (ts == nullptr) {
        TLOG(LEVEL_ERROR, "alloc memory failure.\n");
        return;
    }
    ts->ts_id = seat < 0 ? 0 : seat;
    ts->scr_id = screen;
    ts->ts_type = need_cali != 1 ? 1 : 0;
    // A seat outside the table is refused (and logged) there; the record
    // then has no owner and is released here.
    if (ts_set_private_data(ts->ts_id, ts) != 0)
        delete ts;
    TLOG(LEVEL_DEBUG, "add screen id:%d, seat %d to touchscreen...\n", screen, seat);
}

// Seats index the 15-entry chain table. A seat outside 1..15 (a "port.conf"
// row such as "usb-x 20", "usb-y 0" or "usb-z -3") counts as a seat that is
// not found: the parser keeps the row as written, and the registry treats a
// device on that port as it treats one on no configured port.
bool seat_in_table(int seat)
{
    return seat >= 1 && seat <= INPUT_SEAT_MAX;
}

// The character of syspath right after the seat's port prefix, '\0' when the
// path is not longer than the prefix (two rows may share a seat, and the
// first one's prefix may be longer than the path that matched the second).
char char_after_prefix(const char* syspath, const char* seat_path)
{
    const std::size_t prefix = std::strlen(seat_path);
    return strnlen(syspath, prefix + 1) > prefix ? syspath[prefix] : '\0';
}

// Opens the node of a record that is not yet visible to the event thread and
// reads what the record needs from it. Everything a reader of the record uses
// is filled in before the record is published.
void open_new_device(_InputDev* dev, const char* devnode, bool read_ranges)
{
    dev->fd = EvdevOpenDevice(devnode);
    if (dev->fd >= 1 && read_ranges)
        read_abs_ranges(dev);
}

_InputDev* add_input_info(const char* syspath, const char* name, const char* devnode, int type, int need_cali)
{
    const int seat = get_device_seat(syspath);
    if (!seat_in_table(seat)) {
        TLOG(LEVEL_ERROR, "error ,can't find this path:%s\n", syspath);
        return nullptr;
    }
    const char* seat_path = get_seat_syspath(seat);
    if (seat_path == nullptr) {
        TLOG(LEVEL_ERROR, "Error,can't find seat:%d\n", seat);
        return nullptr;
    }
    const bool behind_hub = char_after_prefix(syspath, seat_path) == '.';

    for (_InputDev* d = input_info[seat - 1].load(); d != nullptr; d = d->next.load()) {
        if (same_string(d->path, syspath) && same_string(d->name, name) && same_string(d->device, devnode))
            return nullptr;  // already registered
    }

    _InputDev* dev = new_input_dev(name, syspath, devnode, get_input_conf_display(seat), type);
    if (dev == nullptr)
        return nullptr;
    dev->usb = 1;
    dev->seat = seat;
    dev->need_cali = need_cali;

    if (behind_hub) {
        TLOG(LEVEL_DEBUG, "Add usb seat [%d] extern device:%s\n", seat, syspath);
        // The table has 15 entries; one more hub device is refused rather
        // than written past its end.
        if (count_exusb_input.load() >= EXTERN_INPUT_MAX) {
            TLOG(LEVEL_ERROR, "Extern usb input list is full\n");
            delete_input_dev(dev);
            return nullptr;
        }
    }
    open_new_device(dev, devnode, type == INPUT_TYPE_TOUCHSCREEN);

    if (behind_hub) {
        const int n = count_exusb_input.load();
        extern_input[n].store(dev);
        count_exusb_input.store(n + 1);
    } else {
        _InputDev* head = input_info[seat - 1].load();
        if (head == nullptr) {
            input_info[seat - 1].store(dev);
        } else {
            while (head->next.load() != nullptr)
                head = head->next.load();
            head->next.store(dev);
        }
    }

    if (dev->fd < 1)
        return dev;
    add_monitor_handle(dev->fd, EvdevReadInput, dev);
    switch (type) {
    case INPUT_TYPE_MOUSE: usb_input_increase(static_cast<unsigned>(dev->config_disp)); break;
    case INPUT_TYPE_KEYBOARD: set_keyborad_lock_state(dev->fd, LED_CAPSL, 0); break;
    default: break;
    }
    return dev;
}

_InputDev* add_non_usbinput(const char* path, const char* name, const char* devnode, int type, int seat,
                            int need_cali)
{
    const int n = count_nonusb_input.load();
    if (n >= NONUSB_INPUT_MAX) {
        TLOG(LEVEL_ERROR, "Non usb input list is full\n");
        return nullptr;
    }
    int config_disp = 0;
    if (same_string(name, "sub_encoder") || (type == INPUT_TYPE_TOUCHSCREEN && same_string(name, "touchscreen_sub")))
        config_disp = 1;
    _InputDev* dev = new_input_dev(name, path, devnode, config_disp, type);
    if (dev == nullptr)
        return nullptr;
    dev->usb = 0;
    dev->seat = seat;
    dev->need_cali = need_cali;
    open_new_device(dev, devnode, true);
    nonusb_input[n].store(dev);
    count_nonusb_input.store(n + 1);
    if (dev->fd >= 1)
        add_monitor_handle(dev->fd, EvdevReadInput, dev);
    return dev;
}

int remove_extern_usb(const char* syspath)
{
    _InputDev* dev = take_by_path(extern_input, count_exusb_input, syspath);
    if (dev == nullptr)
        return -1;
    TLOG(LEVEL_DEBUG, "Do remove extern usb device:%s\n", dev->name != nullptr ? dev->name : "");
    if (dev->type == INPUT_TYPE_MOUSE && dev->fd > 0)
        usb_input_decrease(static_cast<unsigned>(dev->config_disp));
    delete_input_dev(dev);
    return 0;
}

int remove_input_info(const char* syspath)
{
    const int seat = get_device_seat(syspath);
    if (!seat_in_table(seat)) {
        TLOG(LEVEL_ERROR, "error ,can't find this path:%s\n", syspath);
        return -1;
    }
    const char* seat_path = get_seat_syspath(seat);
    if (seat_path == nullptr) {
        TLOG(LEVEL_ERROR, "Error,can't find seat:%d\n", seat);
        return 0;
    }
    if (char_after_prefix(syspath, seat_path) == '.') {
        TLOG(LEVEL_DEBUG, "Remove usb seat [%d] extern device:%s\n", seat, syspath);
        return remove_extern_usb(syspath);
    }
    // Every node of the seat goes at once: a composite device has several
    // nodes on one port.
    _InputDev* head = input_info[seat - 1].exchange(nullptr);
    if (head != nullptr) {
        TLOG(LEVEL_DEBUG, "Remove device:%s\n", head->name != nullptr ? head->name : "");
        if (head->type == INPUT_TYPE_MOUSE && head->fd > 0)
            usb_input_decrease(static_cast<unsigned>(head->config_disp));
        delete_input_dev(head);
    }
    ts_free_private_data(seat);
    return 0;
}

int remove_non_usbinput(const char* syspath)
{
    ts_free_private_data(0);
    _InputDev* dev = take_by_path(nonusb_input, count_nonusb_input, syspath);
    if (dev == nullptr)
        return -1;
    TLOG(LEVEL_DEBUG, "Remove nonusb device:%s\n", dev->name != nullptr ? dev->name : "");
    delete_input_dev(dev);
    return 0;
}

}  // namespace

int do_action(int action, const _HotDev* dev)
{
    if (dev == nullptr)
        return -1;
    switch (action) {
    case 1: return handle_add_device(dev->syspath, dev->name, dev->devnode, dev->type, dev->need_cali);
    case 0: return handle_remove_device(dev->syspath);
    default: return 0;
    }
}

int handle_add_device(const char* syspath, const char* name, const char* devnode, int type, int need_cali)
{
    if (syspath == nullptr || name == nullptr || devnode == nullptr) {
        TLOG(LEVEL_ERROR, "para is error\n");
        return -1;
    }
    const int seat = get_device_seat(syspath);
    _InputDev* dev = nullptr;
    // The record is complete (seat, need_cali, axis ranges) before the event
    // thread can reach it.
    if (seat_in_table(seat)) {
        TLOG(LEVEL_DEBUG, "usb input,seat:%d\n", seat);
        // Every USB device is named after the touchscreen role of its seat;
        // the name reported by the monitor is not used.
        dev = add_input_info(syspath, seat == MAIN_TOUCH_SEAT ? "touchscreen_main" : "touchscreen_sub", devnode, type,
                             need_cali);
        if (type == INPUT_TYPE_TOUCHSCREEN)
            new_ts_priv_data(seat, get_input_conf_display(seat), need_cali);
    } else {
        TLOG(LEVEL_DEBUG, "non usb input,path:%s\n", syspath);
        // A non-USB record keeps the seat it was found with (-1, or a row's
        // 0 or negative seat); a seat beyond the table is stored as -1.
        dev = add_non_usbinput(NON_USB_PATH, "touchscreen_main", devnode, type, seat > 0 ? -1 : seat, need_cali);
        if (type == INPUT_TYPE_TOUCHSCREEN)
            new_ts_priv_data(0, 0, need_cali);
    }
    return dev != nullptr ? 0 : -1;
}

int handle_remove_device(const char* syspath)
{
    if (syspath == nullptr) {
        TLOG(LEVEL_ERROR, "para is error\n");
        return -1;
    }
    if (remove_input_info(syspath) == 0)
        return 0;
    return remove_non_usbinput(syspath);
}

_InputDev* get_input_info(int seat)
{
    if (seat < 1 || seat > INPUT_SEAT_MAX)
        return nullptr;
    return input_info[seat - 1].load();
}

_InputDev* new_input_dev(const char* name, const char* path, const char* device, int config_disp, int type)
{
    if (path == nullptr || device == nullptr)
        return nullptr;
    auto* dev = new (std::nothrow) _InputDev{};
    if (dev == nullptr)
        return nullptr;
    dev->name = dup_string(name);
    dev->path = dup_string(path);
    dev->device = dup_string(device);
    if (dev->path == nullptr || dev->device == nullptr || (name != nullptr && dev->name == nullptr)) {
        delete_input_dev(dev);
        return nullptr;
    }
    dev->config_disp = config_disp;
    dev->type = type;
    dev->disp = input_dev_screen(dev);
    return dev;
}

void delete_input_dev(_InputDev* dev)
{
    if (dev == nullptr)
        return;
    // Every descriptor leaves the monitor list first (a failed open's -1 is
    // refused there with its log line, as for any descriptor that is not 0).
    for (_InputDev* d = dev; d != nullptr; d = d->next.load()) {
        if (d->fd != 0)
            remove_monitor_handle(d->fd);
    }
    // The main loop may be inside EvdevReadInput for one of these records:
    // wait for that pass to end before the descriptors close and the records
    // are freed.
    monitor_wait_for_dispatch();
    while (dev != nullptr) {
        _InputDev* next = dev->next.load();
        // Every record of the chain gives up its touch tracking, and only
        // now: before the wait, the pass still running could take it again.
        OnDevDelete(dev);
        std::free(dev->device);
        std::free(dev->name);
        std::free(dev->path);
        EvdevCloseDevice(dev->fd);
        delete dev;
        dev = next;
    }
}

int find_index_by_fd(int fd)
{
    for (int i = 0; i < SCREEN_COUNT; ++i) {
        if (gs_clients[i].load() == fd)
            return i;
    }
    return -1;
}

int handle_inputsys_init(int index, int fd)
{
    if (index < 0 || index >= SCREEN_COUNT || fd < 1) {
        TLOG(LEVEL_ERROR, "handle_inputsys_init para error\n");
        return -1;
    }
    if (gs_clients[index].load() >= 1) {
        TLOG(LEVEL_ERROR, "screen %d has been init !!\n", index);
        return -1;
    }
    gs_clients[index].store(fd);
    return 0;
}

int handle_inputsys_close(int fd)
{
    // Every screen the connection held is released, not only the first: a
    // registration left behind would hand that screen's records to the next
    // program given the same descriptor number.
    if (fd < 1 || find_index_by_fd(fd) < 0)
        return -1;
    int result = 0;
    for (int index = 0; index < SCREEN_COUNT; ++index) {
        int held = fd;
        if (!gs_clients[index].compare_exchange_strong(held, 0))
            continue;
        if (index == MAIN_SCREEN) {
            TLOG(LEVEL_ERROR, "Main screen closed\n");
            result = -1;
            continue;
        }
        // A cursor held by the leaving screen goes back to the main screen: in
        // double-player mode on both players' models, else on the one model.
        const int models = (get_current_multimode() & MODE_DOUBLE_PLAYER) != 0 ? 2 : 1;
        for (int i = 0; i < models; ++i) {
            ScrInfo* scr = get_screen_info(i);
            if (get_cursor_client(scr) == index)
                screen_change_cursor(scr, index, MAIN_SCREEN);
        }
    }
    return result;
}
