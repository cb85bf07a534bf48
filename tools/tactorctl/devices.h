// The input devices present, as tactord would take them: its own
// classification of each evdev node, the node's sysfs name and physical
// path, the kernel's device listing, and the seat and screen the seat file
// gives. Needs no running daemon.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tools {

struct ListedDevice {
    int number = -1;        // N of eventN
    std::string node;       // "/dev/eventN" (what tactord polls), else "/dev/input/eventN"
    std::string name;       // sysfs name, else the kernel listing's
    std::string phys;       // sysfs physical path (the port path), without the line end
    std::string usb_id;     // "vendor:product" from the kernel listing, empty for non-USB devices
    std::string kind;       // "keyboard", "mouse", "touchscreen", "none"
    bool need_cali = false; // a touchscreen whose raw values tactord converts
    bool unreadable = false;
    bool handled = false;   // tactord reads this node (it polls /dev/event0..15 only)
    int seat = -1;          // the seat of the first matching seat-file row, -1 for none
    int screen = 0;         // the screen the device feeds
    int cali_seat = -1;     // a calibratable touchscreen's seat for the calibration messages
    int abs_max_x = 0;      // a touchscreen's axis maxima (0 when not read)
    int abs_max_y = 0;
};

// While it lives, the daemon code that tactorctl runs logs its errors to
// the descriptor fd rather than to standard output: the logger writes to
// standard output, which is pointed there meanwhile. In the simulated
// panel, which runs tactorctl in its own process, its other output may go
// there as well for that moment.
class DaemonLogTo {
public:
    explicit DaemonLogTo(int fd);
    ~DaemonLogTo();
    DaemonLogTo(const DaemonLogTo&) = delete;
    DaemonLogTo& operator=(const DaemonLogTo&) = delete;

private:
    int saved_ = -1;
};

// Loads the seat file into the parser's tables: conf, or when empty
// "port.conf" in the working directory, else "/etc/tactord/port.conf".
// Returns the file used; null when it cannot be used (error says so), and
// the tables are left empty as tactord's would be.
std::optional<std::string> load_seat_file(const std::string& conf, std::string& error);
// Every event device present; load_seat_file first.
std::vector<ListedDevice> list_devices();
// Empties the parser's tables again.
void unload_seat_file();

}  // namespace tools
