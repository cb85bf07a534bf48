#include "common/ts_cali.h"

#include "common/log.h"
#include "common/ts_cali_internal.h"
#include "msg_handle.h"

std::array<std::atomic<ts_priv_data_s*>, TS_SEAT_MAX> ts_dat{};

namespace {
// Frees a record that has just left the table once the main loop can no
// longer be using it (the event pipeline reads records without a lock).
void release_record(ts_priv_data_s* record)
{
    if (record == nullptr)
        return;
    monitor_wait_for_dispatch();
    delete record;
}

bool seat_ok(int seat)
{
    if (seat >= 0 && seat < TS_SEAT_MAX)
        return true;
    TLOG(LEVEL_ERROR, "Error, invalid param (usb seat %d)\n", seat);
    return false;
}
}  // namespace

int ts_set_private_data(int seat, ts_priv_data_s* record)
{
    if (record == nullptr) {
        TLOG(LEVEL_ERROR, "Error, invalid param (usb seat %d)\n", seat);
        return -1;
    }
    if (!seat_ok(seat))
        return -1;
    // A seat holds one record: a second touchscreen on the same seat (or a
    // repeated report) replaces the first one, which is released here so it
    // does not leak.
    release_record(ts_dat[seat].exchange(record));
    return 0;
}

ts_priv_data_s* ts_get_private_data(int seat)
{
    if (!seat_ok(seat))
        return nullptr;
    return ts_dat[seat].load(std::memory_order_acquire);
}

void ts_free_private_data(int seat)
{
    if (!seat_ok(seat))
        return;
    release_record(ts_dat[seat].exchange(nullptr));
}
