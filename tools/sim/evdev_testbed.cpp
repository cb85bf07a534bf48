#include "sim/evdev_testbed.h"

#include "sim/ioctl_bridge.h"

#include <linux/input.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <tuple>

namespace emul {

namespace {

// The ARMv7 kernel's record has 32-bit time fields, 16 bytes: the layout of
// the daemon's own record (tactord_types.h). The x86-64 one has 64-bit time
// fields, 24 bytes.
std::vector<::input_event> to_host_raw(const std::vector<tactord::input_event>& events)
{
    std::vector<::input_event> raw(events.size());
    for (std::size_t i = 0; i < events.size(); ++i) {
        raw[i].input_event_sec = events[i].tv_sec;
        raw[i].input_event_usec = events[i].tv_usec;
        std::tie(raw[i].type, raw[i].code, raw[i].value) = std::tie(events[i].type, events[i].code, events[i].value);
    }
    return raw;
}

}  // namespace

std::string EvdevTestbed::devnode_of(int node)
{
    const std::string in_input = "/dev/input/event" + std::to_string(node);
    std::lock_guard<std::mutex> guard(mutex_);
    return nodes_.count(in_input) != 0 ? in_input : "/dev/event" + std::to_string(node);
}

EvdevTestbed::EvdevTestbed()
    : testbed_(umockdev_testbed_new()), handler_(umockdev_ioctl_base_new()), arm32_records_(daemon_is_target())
{
    const char* path = std::getenv("PATH");
    const std::string shim = TACTORD_SOURCE_DIR "/tools/sim/bin";
    if (path == nullptr || std::string(path).find(shim) == std::string::npos)
        setenv("PATH", (shim + ":" + (path != nullptr ? path : "/usr/bin:/bin")).c_str(), 1);
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(&EvdevTestbed::on_ioctl), this);
}

EvdevTestbed::~EvdevTestbed()
{
    // The table leaves under the lock: the testbed's worker last wrote it
    // under the same lock, and the worker's own end is not visible to the
    // thread sanitizer through GLib. An ioctl that comes meanwhile finds no
    // node.
    std::map<std::string, Node> nodes;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        nodes.swap(nodes_);
    }
    gchar* root = umockdev_testbed_get_root_dir(testbed_);
    drop_target_view(root);
    g_free(root);
    for (const auto& [devnode, node] : nodes)
        umockdev_testbed_detach_ioctl(testbed_, devnode.c_str(), nullptr);
    g_object_unref(handler_);
    g_object_unref(testbed_);
}

bool EvdevTestbed::add(int node, const emul::TestDevice& dev, NodeOptions opts)
{
    const std::string devnode = (opts.input_dir ? "/dev/input/event" : "/dev/event") + std::to_string(node);
    const std::string input = "/devices/platform/test/input/input" + std::to_string(next_input_++);
    const std::string event = input + "/event" + std::to_string(node);

    std::string parent = "P: " + input + "\nE: SUBSYSTEM=input\n";
    if (opts.with_name)
        parent += "A: name=" + dev.name + "\\n\n";
    if (opts.with_phys)
        parent += "A: phys=" + dev.phys + "\\n\n";
    const std::string node_text = "P: " + event + "\nN: " + devnode.substr(5) +
                                  "\nE: SUBSYSTEM=input\nE: DEVNAME=" + devnode + "\nA: dev=13:" +
                                  std::to_string(64 + node) + "\n";
    // The ioctl handler is in place before the node appears, so a reader
    // that opens the node at once is already served by it.
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (!nodes_.try_emplace(devnode, Node{dev, opts, "/sys" + input, "/sys" + event}).second)
            return false;
    }
    umockdev_testbed_attach_ioctl(testbed_, devnode.c_str(), handler_, nullptr);
    gchar* root = umockdev_testbed_get_root_dir(testbed_);
    const std::string root_dir = root;
    g_free(root);
    bridge_ioctl(root_dir, devnode);
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed_, parent.c_str(), &error)) {
        g_error_free(error);
        return false;
    }
    // The kernel links each event node to its input device; the link is in
    // place before the node appears, so a monitor that finds the node also
    // finds its attributes.
    const std::string event_dir = root_dir + "/sys" + event;
    std::error_code ec;
    std::filesystem::create_directories(event_dir, ec);
    std::filesystem::create_directory_symlink("..", event_dir + "/device", ec);
    if (!umockdev_testbed_add_from_string(testbed_, node_text.c_str(), &error)) {
        g_error_free(error);
        return false;
    }
    return true;
}

void EvdevTestbed::remove(int node)
{
    const std::string devnode = devnode_of(node);
    Node gone;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        auto it = nodes_.find(devnode);
        if (it == nodes_.end() || !it->second.present)
            return;
        it->second.present = false;
        gone = it->second;
    }
    // The handler stays attached: a reader still holding the node talks to
    // it until it closes the node, and it answers ENODEV from now on.
    umockdev_testbed_remove_device(testbed_, gone.event_syspath.c_str());
    umockdev_testbed_remove_device(testbed_, gone.input_syspath.c_str());
}

int EvdevTestbed::master_fd(int node)
{
    return umockdev_testbed_get_dev_fd(testbed_, devnode_of(node).c_str());
}

bool EvdevTestbed::write_raw(int node, const void* data, std::size_t len)
{
    const int fd = master_fd(node);
    return fd >= 0 && write(fd, data, len) == static_cast<ssize_t>(len);
}

bool EvdevTestbed::play(int node, const std::vector<tactord::input_event>& events)
{
    if (arm32_records_)
        return write_raw(node, events.data(), events.size() * sizeof events[0]);
    const auto raw = to_host_raw(events);
    return write_raw(node, raw.data(), raw.size() * sizeof raw[0]);
}

std::vector<tactord::input_event> EvdevTestbed::written(int node, std::chrono::milliseconds timeout)
{
    const int fd = master_fd(node);
    if (fd < 0)
        return {};
    // The other end reports a hang-up while no reader holds the node open,
    // so wait for data, not just for an event on it.
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    // Whole records of either layout: 16 x 24 bytes is 24 x 16 bytes.
    alignas(::input_event) uint8_t raw[16 * sizeof(::input_event)];
    ssize_t n = -1;
    while (n <= 0 && std::chrono::steady_clock::now() < deadline) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 20) > 0 && (p.revents & POLLIN) != 0)
            n = read(fd, raw, sizeof raw);
        else if (p.revents != 0)
            usleep(20000);
    }
    return decode(raw, n > 0 ? static_cast<std::size_t>(n) : 0);
}

std::size_t EvdevTestbed::record_size() const
{
    return arm32_records_ ? sizeof(tactord::input_event) : sizeof(::input_event);
}

std::vector<tactord::input_event> EvdevTestbed::decode_records(bool arm32, const void* data, std::size_t len)
{
    std::vector<tactord::input_event> out;
    const auto* bytes = static_cast<const uint8_t*>(data);
    const std::size_t size = arm32 ? sizeof(tactord::input_event) : sizeof(::input_event);
    for (std::size_t off = 0; off + size <= len; off += size) {
        tactord::input_event e;
        if (arm32) {
            std::memcpy(&e, bytes + off, size);
        } else {
            ::input_event r;
            std::memcpy(&r, bytes + off, size);
            e = {static_cast<int32_t>(r.input_event_sec), static_cast<int32_t>(r.input_event_usec), r.type, r.code,
                 r.value};
        }
        out.push_back(e);
    }
    return out;
}

bool EvdevTestbed::add_acm(int port)
{
    const std::string name = "ttyACM" + std::to_string(port);
    const std::string text = "P: /devices/platform/test/usb1/1-1/1-1:1.0/tty/" + name + "\nN: " + name +
                             "\nE: SUBSYSTEM=tty\nE: DEVNAME=/dev/" + name + "\nA: dev=166:" + std::to_string(port) +
                             "\n";
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed_, text.c_str(), &error)) {
        g_error_free(error);
        return false;
    }
    return true;
}

bool EvdevTestbed::write_acm(int port, const void* data, std::size_t len)
{
    const int fd = umockdev_testbed_get_dev_fd(testbed_, ("/dev/ttyACM" + std::to_string(port)).c_str());
    return fd >= 0 && write(fd, data, len) == static_cast<ssize_t>(len);
}

void EvdevTestbed::hang_up_acm(int port)
{
    // The testbed keeps the pty's master and closes it on destruction: put
    // /dev/null in its place, which closes the master (the slave hangs up)
    // and leaves the testbed a descriptor of its own to close.
    const int fd = umockdev_testbed_get_dev_fd(testbed_, ("/dev/ttyACM" + std::to_string(port)).c_str());
    const int null_fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (fd >= 0 && null_fd >= 0)
        dup2(null_fd, fd);
    if (null_fd >= 0)
        close(null_fd);
}

gboolean EvdevTestbed::on_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self)
{
    return static_cast<EvdevTestbed*>(self)->handle_ioctl(client);
}

gboolean EvdevTestbed::handle_ioctl(UMockdevIoctlClient* client)
{
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    const std::string devnode = umockdev_ioctl_client_get_devnode(client);
    Node node;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        auto it = nodes_.find(devnode);
        if (it == nodes_.end() || !it->second.present) {
            umockdev_ioctl_client_complete(client, -1, ENODEV);
            return TRUE;
        }
        node = it->second;
    }
    if (node.opts.fail_ioctls || _IOC_TYPE(request) != 'E' || _IOC_DIR(request) != _IOC_READ) {
        umockdev_ioctl_client_complete(client, -1, node.opts.fail_ioctls ? EIO : ENOTTY);
        return TRUE;
    }
    const unsigned nr = _IOC_NR(request);
    const std::size_t size = _IOC_SIZE(request);
    UMockdevIoctlData* data = umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, size, nullptr);
    if (data == nullptr) {
        umockdev_ioctl_client_complete(client, -1, EFAULT);
        return TRUE;
    }
    auto* out = reinterpret_cast<uint8_t*>(data->data);
    long result = -1;
    int err = EINVAL;
    if (nr >= 0x20 && nr < 0x20 + EV_CNT) {
        // EVIOCGBIT: the kernel copies no more than the bitmap's real size.
        const std::map<unsigned, std::pair<const std::vector<unsigned>*, unsigned>> maps = {
            {0, {&node.dev.ev, EV_MAX}},
            {EV_KEY, {&node.dev.key, KEY_MAX}},
            {EV_ABS, {&node.dev.abs, ABS_MAX}},
            {EV_REL, {&node.dev.rel, REL_MAX}}};
        const auto it = maps.find(nr - 0x20);
        const std::size_t len = it == maps.end() ? 0 : std::min<std::size_t>(size, (it->second.second + 8) / 8);
        emul::fill_bits(it == maps.end() ? std::vector<unsigned>{} : *it->second.first, out, len);
        result = static_cast<long>(len);
        err = 0;
    } else if (nr >= 0x40 && nr < 0x40 + ABS_CNT && size == sizeof(input_absinfo)) {
        // EVIOCGABS
        input_absinfo info{};
        for (const emul::AbsAxis& axis : node.dev.axes)
            if (axis.code == nr - 0x40)
                std::tie(info.minimum, info.maximum) = std::tie(axis.minimum, axis.maximum);
        std::memcpy(out, &info, sizeof info);
        result = 0;
        err = 0;
    }
    umockdev_ioctl_client_complete(client, result, err);
    g_object_unref(data);
    return TRUE;
}

}  // namespace emul
