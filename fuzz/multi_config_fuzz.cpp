// Feeds arbitrary text to the seat-configuration parser, then hands every
// parsed row to the registry's lookups the way a device on that port would:
// added and removed as a port device, a hub device and a bare prefix.
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/inputdevice_manager.h"
#include "common/inputdevice_manager_internal.h"
#include "common/multi_config.h"
#include "common/multi_config_internal.h"
#include "fuzz_scratch.h"

namespace {

using fuzzsupport::scratch;

void exercise_row(const _device_seat& row)
{
    // A node that does not exist: the record is kept without a descriptor.
    const char* node = "/nonexistent/event3";
    const std::string paths[] = {row.syspath, std::string(row.syspath) + "/input0",
                                 std::string(row.syspath) + ".4/input0"};
    get_seat_syspath(row.seat);
    get_input_conf_display(row.seat);
    get_input_info(row.seat);
    for (const auto& p : paths) {
        get_device_seat(p.c_str());
        handle_add_device(p.c_str(), "null", node, INPUT_TYPE_TOUCHSCREEN, 1);
        handle_add_device(p.c_str(), "null", node, INPUT_TYPE_MOUSE, 0);
    }
    for (const auto& p : paths)
        handle_remove_device(p.c_str());
}

// Empties a dense device table without the lookups (which a row matching
// "non_usb_path" would steer elsewhere).
template <std::size_t N>
void drop_all(std::array<std::atomic<_InputDev*>, N>& table, std::atomic<int>& count)
{
    for (auto& slot : table)
        delete_input_dev(slot.exchange(nullptr));
    count.store(0);
}

void reset_tables()
{
    drop_all(nonusb_input, count_nonusb_input);
    drop_all(extern_input, count_exusb_input);
    std::atomic<int> chains{0};  // the seat chains have no count
    drop_all(input_info, chains);
    for (auto& row : device_seats) {
        std::free(row.syspath);
        row = {};
    }
    for (auto& row : output_seats) {
        std::free(row.syspath);
        row = {};
    }
    terminals = {};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool ready = fuzzsupport::set_up_scratch_and_log();
    if (!ready)
        return 0;
    const std::string path = scratch + "/port.conf";
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr)
        return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);

    config_init(path.c_str());
    for (const auto& row : device_seats) {
        if (row.syspath == nullptr)
            break;
        exercise_row(row);
    }
    get_device_seat("usb-musb-hdrc.1-1.2/input0");
    for (int seat = -2; seat < 20; ++seat)
        get_input_conf_display(seat);
    reset_tables();
    return 0;
}
