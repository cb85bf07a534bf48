// tactorctl devices: what an integrator runs first on a board. Every evdev
// node with the kind tactord's own classification gives it, its port path
// and the seat and screen the seat file maps that port to, read from sysfs,
// the kernel's device listing and the seat file: no daemon needed.
#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "arm/hot_plug.h"
#include "client/record_text.h"
#include "common/log.h"
#include "common/multi_config.h"
#include "common/multi_config_internal.h"
#include "common/root_path.h"
#include "common/usb_gun/usbinfo_internal.h"
#include "tactorctl/ctl.h"
#include "tactorctl/devices.h"

namespace tools {
namespace {

// tactord polls "/dev/event0" to "/dev/event15"; the kernel may number
// further nodes, which are listed as not handled.
constexpr int kPolledNodes = 16;
constexpr int kListedNodes = 64;

std::string first_line(const std::string& path)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

bool exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

// "vendor:product" of the USB devices in the kernel's listing, by event
// number, read with the scanner service's own parser.
std::map<int, std::string> usb_ids()
{
    root_path_buf buf;
    std::ifstream in(resolve_path(USB_PROC_DEVICES, buf), std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto list = std::make_unique<UsbDevInfo_t>();
    usbinfo_parse(text.data(), text.size(), list.get());
    std::map<int, std::string> ids;
    for (int i = 0; i < list->usbdev_total_count && i < USBDEV_MAX_COUNT; ++i) {
        char id[32];
        std::snprintf(id, sizeof id, "%04x:%04x", list->usb_desc[i].vendor, list->usb_desc[i].product);
        ids.emplace(list->usb_desc[i].event_index, id);
    }
    return ids;
}

void read_axes(ListedDevice& d)
{
    const int fd = open(d.node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return;
    input_absinfo x{};
    input_absinfo y{};
    if (ioctl(fd, EVIOCGABS(ABS_X), &x) == 0 && ioctl(fd, EVIOCGABS(ABS_Y), &y) == 0) {
        d.abs_max_x = x.maximum;
        d.abs_max_y = y.maximum;
    }
    close(fd);
}

// The registry's view of a device (seat, screen, calibration seat).
void place(ListedDevice& d)
{
    const int seat = get_device_seat(d.phys.c_str());
    d.seat = seat > 0 ? seat : -1;
    d.screen = d.seat > 0 ? get_input_conf_display(d.seat) : 0;
    if (d.kind == "touchscreen" && d.need_cali)
        d.cali_seat = d.seat > 0 ? d.seat : 0;
}

std::string note(const ListedDevice& d)
{
    if (!d.handled)
        return "not handled: tactord reads /dev/event0 to /dev/event15 only";
    std::string n;
    if (d.unreadable)
        n = "cannot be opened here (run as root): tactord would classify it the same way; ";
    if (d.seat > 0) {
        const char* row = get_seat_syspath(d.seat);
        const std::size_t len = row != nullptr ? std::strlen(row) : 0;
        n += d.phys.size() > len && d.phys[len] == '.' ? "behind a hub on the seat's port" : "on the seat's port";
    } else {
        // Where no seat-file row matches, tactord still reads the device: a
        // non-USB input of screen 0 (the board's own touch panel is one).
        n += "no seat-file row matches: a non-USB input of screen 0";
    }
    if (d.cali_seat >= 0)
        n += "; calibration seat " + std::to_string(d.cali_seat);
    return n;
}

int devices(CtlContext& ctx, const std::vector<std::string>& args)
{
    bool json = false;
    std::string conf;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--json") {
            json = true;
        } else if (args[i] == "--conf") {
            const std::string* value = option_value(ctx, args, i);
            if (value == nullptr)
                return kExitUsage;
            conf = *value;
        } else {
            return usage_error(ctx, "unexpected argument '" + args[i] + "'");
        }
    }
    std::string error;
    const auto used = load_seat_file(conf, error);
    const std::vector<ListedDevice> list = list_devices();
    if (json) {
        std::string out = "[";
        for (const ListedDevice& d : list) {
            const auto number_or_null = [](int v) { return v >= 0 ? std::to_string(v) : std::string("null"); };
            out += std::string(out.size() > 1 ? "," : "") + "\n {\"node\":\"" + json_escape(d.node) + "\",\"name\":\"" +
                   json_escape(d.name) + "\",\"port\":\"" + json_escape(d.phys) + "\",\"usb_id\":\"" + d.usb_id +
                   "\",\"type\":\"" + d.kind + "\",\"needs_calibration\":" + (d.need_cali ? "true" : "false") +
                   ",\"handled\":" + (d.handled ? "true" : "false") + ",\"seat\":" + number_or_null(d.seat) +
                   ",\"screen\":" + (d.handled ? std::to_string(d.screen) : "null") +
                   ",\"calibration_seat\":" + number_or_null(d.cali_seat) + ",\"note\":\"" + json_escape(note(d)) +
                   "\"}";
        }
        ctx.say(out + "\n]");
    } else {
        ctx.say(used ? "seat file " + *used : error);
        ctx.say("NODE          TYPE                            NAME                      PORT                         SEAT SCREEN");
        for (const ListedDevice& d : list) {
            const std::string kind = d.kind + (d.need_cali ? " (needs calibration)" : "");
            char line[512];
            std::snprintf(line, sizeof line, "%-13s %-31s %-25s %-28s %-4s %-6s %s", d.node.c_str(), kind.c_str(),
                          ("\"" + d.name + "\"").c_str(), d.phys.empty() ? "-" : d.phys.c_str(),
                          d.seat > 0 ? std::to_string(d.seat).c_str() : "-",
                          d.handled ? std::to_string(d.screen).c_str() : "-", note(d).c_str());
            ctx.say(line);
        }
        if (list.empty())
            ctx.say("no input devices");
    }
    unload_seat_file();
    return kExitOk;
}

}  // namespace

DaemonLogTo::DaemonLogTo(int fd)
{
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    dup2(fd, STDOUT_FILENO);
    set_log_level(LEVEL_ERROR);
    set_log_to_stdout(LOG_PLACE_STDOUT);
}

DaemonLogTo::~DaemonLogTo()
{
    std::fflush(stdout);
    if (saved_ >= 0) {
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
}

void unload_seat_file()
{
    release_seat_rows();
    terminals = {};
}

std::optional<std::string> load_seat_file(const std::string& conf, std::string& error)
{
    std::string path = conf;
    if (path.empty())
        path = exists("port.conf") ? "port.conf" : "/etc/tactord/port.conf";
    unload_seat_file();
    if (!exists(path)) {
        error = "no seat file " + path + ", so every device counts as a non-USB input of screen 0, as in tactord "
                "(--conf FILE names one)";
        return std::nullopt;
    }
    const DaemonLogTo to_stderr(STDERR_FILENO);  // what the parser finds wrong
    if (config_init(path.c_str()) != 0) {
        unload_seat_file();
        error = "cannot use " + path + ", so every device counts as a non-USB input of screen 0, as in tactord (tactorctl "
                "config check " + path + " says why; --conf FILE names another)";
        return std::nullopt;
    }
    return path;
}

std::vector<ListedDevice> list_devices()
{
    const std::map<int, std::string> ids = usb_ids();
    // The classification logs errors only for a node it cannot open, which
    // is tried first and noted in the list instead.
    set_log_level(LEVEL_ERROR);
    set_log_to_stdout(LOG_PLACE_STDOUT);
    std::vector<ListedDevice> list;
    for (int n = 0; n < kListedNodes; ++n) {
        const std::string sys = "/sys/class/input/event" + std::to_string(n) + "/device/";
        const std::string polled = "/dev/event" + std::to_string(n);
        ListedDevice d;
        d.number = n;
        d.handled = n < kPolledNodes && exists(polled);
        d.node = d.handled || exists(polled) ? polled : "/dev/input/event" + std::to_string(n);
        if (!exists(d.node))
            continue;
        d.name = first_line(sys + "name");
        d.phys = first_line(sys + "phys");
        if (const auto id = ids.find(n); id != ids.end())
            d.usb_id = id->second;
        const int probe = open(d.node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        d.unreadable = probe < 0;
        if (probe >= 0)
            close(probe);
        int need_cali = 0;
        const int type = d.unreadable ? USB_INPUT_UNKNOW : Get_EventDeviceType(d.node.c_str(), &need_cali);
        // The registry's type codes: touchscreen, keyboard, mouse; every
        // other result is a device it reads without a kind.
        d.kind = type == USB_INPUT_TOUCHSCREEN ? "touchscreen"
                 : type == USB_INPUT_KEYBOARD  ? "keyboard"
                 : type == USB_INPUT_MOUSE     ? "mouse"
                                               : "none";
        d.need_cali = type == USB_INPUT_TOUCHSCREEN && need_cali == 1;
        place(d);
        if (d.kind == "touchscreen")
            read_axes(d);
        list.push_back(d);
    }
    return list;
}

void add_device_commands(std::vector<Command>& t)
{
    t.push_back({{"devices"}, "[--json] [--conf FILE]",
                 "Lists every input device present as tactord takes it: node, kind by tactord's own\n"
                 "classification (keyboard, mouse, touchscreen, none; needs calibration), name, port path,\n"
                 "the seat its port maps to in the seat file and that seat's screen. The seat file is\n"
                 "--conf FILE, else port.conf in the working directory, else /etc/tactord/port.conf.\n"
                 "Reads sysfs, the kernel's device listing and the seat file: tactord need not run.",
                 devices});
}

}  // namespace tools
