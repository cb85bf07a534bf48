// Feeds arbitrary text to the seat-configuration parser.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "common/log.h"
#include "common/multi_config.h"
#include "common/multi_config_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static char path[] = "/tmp/tactord-fuzz-port.conf.XXXXXX";
    static int fd = mkstemp(path);
    if (fd < 0)
        return 0;
    // File mode: standard output and syslog re-interpret '%' in the finished
    // line (kept as the logger has always behaved), which arbitrary input
    // would turn into bad reads.
    static bool log_ready = [] {
        static char root[] = "/tmp/tactord-fuzz-root.XXXXXX";
        if (mkdtemp(root) == nullptr)
            return false;
        setenv("TACTORD_ROOT", root, 1);
        std::string dir = std::string(root) + "/var/log";
        mkdir((std::string(root) + "/var").c_str(), 0755);
        mkdir(dir.c_str(), 0755);
        set_log_to_stdout(LOG_PLACE_FILE);
        return true;
    }();
    if (!log_ready)
        return 0;
    if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        return 0;
    config_init(path);
    for (int seat = -2; seat < 20; ++seat)
        get_input_conf_display(seat);
    get_device_seat("usb-musb-hdrc.1-1.2/input0");
    // Start every input from empty tables.
    for (auto& row : device_seats) {
        std::free(row.syspath);
        row = {};
    }
    for (auto& row : output_seats) {
        std::free(row.syspath);
        row = {};
    }
    terminals = {};
    return 0;
}
