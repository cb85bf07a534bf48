#include "sim/dev_mod_cfg_emul.h"

#include "sim/ioctl_bridge.h"

#include <cerrno>
#include <cstring>

namespace emul {

DevModCfgEmulator::DevModCfgEmulator() : DevModCfgEmulator(umockdev_testbed_new())
{
    own_testbed_ = true;
}

DevModCfgEmulator::DevModCfgEmulator(UMockdevTestbed* testbed)
    : testbed_(testbed), own_testbed_(false), handler_(umockdev_ioctl_base_new())
{
    for (int s = 0; s < TS_SCREEN_COUNT; ++s)
        state_[s] = {s, 0, 0, 1, 0, 0};
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(&DevModCfgEmulator::on_ioctl), this);
    // The handler is in place before the node appears.
    umockdev_testbed_attach_ioctl(testbed_, DEV_MOD_CFG_PATH, handler_, nullptr);
    gchar* root = umockdev_testbed_get_root_dir(testbed_);
    bridge_ioctl(root, DEV_MOD_CFG_PATH);
    g_free(root);
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed_,
                                          "P: /devices/virtual/misc/dev_mod_cfg\n"
                                          "N: dev_mod_cfg\n"
                                          "E: SUBSYSTEM=misc\n"
                                          "E: DEVNAME=/dev/dev_mod_cfg\n"
                                          "A: dev=10:60\n",
                                          &error))
        g_error_free(error);
}

DevModCfgEmulator::~DevModCfgEmulator()
{
    if (own_testbed_) {
        gchar* root = umockdev_testbed_get_root_dir(testbed_);
        drop_target_view(root);
        g_free(root);
    }
    umockdev_testbed_detach_ioctl(testbed_, DEV_MOD_CFG_PATH, nullptr);
    g_object_unref(handler_);
    if (own_testbed_)
        g_object_unref(testbed_);
    // The requests leave under the lock the testbed's worker wrote them
    // under (see EvdevTestbed's destructor).
    std::lock_guard<std::mutex> guard(mutex_);
    requests_.clear();
    requests_.shrink_to_fit();
    failing_.clear();
}

dev_mod_cfg_t DevModCfgEmulator::state(int screen) const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return state_.at(screen);
}

void DevModCfgEmulator::set_state(int screen, const dev_mod_cfg_t& record)
{
    std::lock_guard<std::mutex> guard(mutex_);
    state_.at(screen) = record;
}

void DevModCfgEmulator::set_touch(int screen, int keydown, int x, int y)
{
    std::lock_guard<std::mutex> guard(mutex_);
    dev_mod_cfg_t& r = state_.at(screen);
    r.keydown = keydown;
    r.xcord = x;
    r.ycord = y;
}

void DevModCfgEmulator::set_volume(int volume)
{
    std::lock_guard<std::mutex> guard(mutex_);
    state_[0].key_volume = volume;
}

void DevModCfgEmulator::fail(unsigned long code)
{
    std::lock_guard<std::mutex> guard(mutex_);
    failing_.insert(code);
}

std::vector<DevModCfgEmulator::Request> DevModCfgEmulator::requests() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return requests_;
}

void DevModCfgEmulator::clear_requests()
{
    std::lock_guard<std::mutex> guard(mutex_);
    requests_.clear();
}

gboolean DevModCfgEmulator::on_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self)
{
    return static_cast<DevModCfgEmulator*>(self)->handle_ioctl(client);
}

// The driver's record is six 32-bit integers, laid out alike for the ARMv7
// daemon and the host's, and its request numbers are plain (no _IOC size or
// direction), so one handler serves either daemon.
static_assert(sizeof(dev_mod_cfg_t) == 6 * sizeof(int32_t) && alignof(dev_mod_cfg_t) == alignof(int32_t));
static_assert(DEV_MOD_CFG_SET_LOCK_EXPLICIT < 0x100, "a request number without _IOC fields");

gboolean DevModCfgEmulator::handle_ioctl(UMockdevIoctlClient* client)
{
    const unsigned long code = umockdev_ioctl_client_get_request(client);
    UMockdevIoctlData* data =
        umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(dev_mod_cfg_t), nullptr);
    if (data == nullptr) {
        umockdev_ioctl_client_complete(client, -1, EFAULT);
        return TRUE;
    }
    dev_mod_cfg_t rec;
    std::memcpy(&rec, data->data, sizeof(rec));

    long result = 0;
    int err = 0;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        requests_.push_back({code, rec});
        const bool known = code == DEV_MOD_CFG_SET_LOCK || code == DEV_MOD_CFG_GET ||
                           code == DEV_MOD_CFG_SET_COORD || code == DEV_MOD_CFG_SET_LOCK_EXPLICIT;
        if (!known || rec.id < 0 || rec.id >= TS_SCREEN_COUNT) {
            result = -1;
            err = EINVAL;
        } else if (failing_.count(code) != 0) {
            result = -1;
            err = EIO;
        } else {
            dev_mod_cfg_t& kept = state_[rec.id];
            switch (code) {
            case DEV_MOD_CFG_GET:
                std::memcpy(data->data, &kept, sizeof(kept));
                break;
            case DEV_MOD_CFG_SET_COORD:
                kept.xcord = rec.xcord;
                kept.ycord = rec.ycord;
                kept.keydown = rec.keydown;
                break;
            default:  // lock status, timed or explicit
                kept.status = rec.status;
                break;
            }
        }
    }
    umockdev_ioctl_client_complete(client, result, err);
    g_object_unref(data);
    return TRUE;
}

}  // namespace emul
