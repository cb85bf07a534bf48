// A umockdev stand-in for the kernel driver behind "/dev/dev_mod_cfg": it
// keeps one 24-byte record per screen, answers request 161 with the screen's
// record, takes coordinates and presses from 164 and the lock status from 160
// and 168, and records every request it gets.
#pragma once

#include <umockdev.h>

#include <array>
#include <mutex>
#include <set>
#include <vector>

#include "func/touchscreen/touchscreen_lock_ctl.h"

namespace emul {

class DevModCfgEmulator {
public:
    struct Request {
        unsigned long code;
        dev_mod_cfg_t record;  // as the caller passed it
    };

    // Creates the testbed with the device node in place; each screen starts
    // unlocked, finger up, volume 0.
    DevModCfgEmulator();
    // The same in an existing testbed (one with emulated evdev nodes).
    explicit DevModCfgEmulator(UMockdevTestbed* testbed);
    ~DevModCfgEmulator();
    DevModCfgEmulator(const DevModCfgEmulator&) = delete;
    DevModCfgEmulator& operator=(const DevModCfgEmulator&) = delete;

    // The testbed, for further emulated devices (a framebuffer).
    UMockdevTestbed* testbed() const { return testbed_; }

    dev_mod_cfg_t state(int screen) const;
    void set_state(int screen, const dev_mod_cfg_t& record);
    // The finger as the touch driver would report it for the screen.
    void set_touch(int screen, int keydown, int x, int y);
    void set_volume(int volume);  // kept in screen 0's record

    // Requests with this code fail with EIO from now on.
    void fail(unsigned long code);

    std::vector<Request> requests() const;
    void clear_requests();

private:
    static gboolean on_ioctl(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);
    gboolean handle_ioctl(UMockdevIoctlClient* client);

    UMockdevTestbed* testbed_;
    bool own_testbed_;
    UMockdevIoctlBase* handler_;
    mutable std::mutex mutex_;  // guards state_, failing_ and requests_
    std::array<dev_mod_cfg_t, TS_SCREEN_COUNT> state_{};
    std::set<unsigned long> failing_;
    std::vector<Request> requests_;
};

}  // namespace emul
