#include "sim/fb_emul.h"

#include <linux/fb.h>

#include <cerrno>
#include <cstring>

namespace emul {

FramebufferEmulator::FramebufferEmulator(UMockdevTestbed* testbed, unsigned xres, unsigned yres)
    : testbed_(testbed), handler_(umockdev_ioctl_base_new()), xres_(xres), yres_(yres)
{
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(&FramebufferEmulator::on_ioctl), this);
    umockdev_testbed_attach_ioctl(testbed_, "/dev/fb0", handler_, nullptr);
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed_,
                                          "P: /devices/virtual/graphics/fb0\n"
                                          "N: fb0\n"
                                          "E: SUBSYSTEM=graphics\n"
                                          "E: DEVNAME=/dev/fb0\n"
                                          "A: dev=29:0\n",
                                          &error))
        g_error_free(error);
}

FramebufferEmulator::~FramebufferEmulator()
{
    umockdev_testbed_detach_ioctl(testbed_, "/dev/fb0", nullptr);
    g_object_unref(handler_);
}

gboolean FramebufferEmulator::on_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self)
{
    auto* fb = static_cast<FramebufferEmulator*>(self);
    if (umockdev_ioctl_client_get_request(client) != FBIOGET_VSCREENINFO) {
        umockdev_ioctl_client_complete(client, -1, ENOTTY);
        return TRUE;
    }
    UMockdevIoctlData* data =
        umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof(fb_var_screeninfo), nullptr);
    if (data == nullptr) {
        umockdev_ioctl_client_complete(client, -1, EFAULT);
        return TRUE;
    }
    fb_var_screeninfo info{};
    info.xres = info.xres_virtual = fb->xres_;
    info.yres = info.yres_virtual = fb->yres_;
    info.bits_per_pixel = 32;
    std::memcpy(data->data, &info, sizeof info);
    umockdev_ioctl_client_complete(client, 0, 0);
    g_object_unref(data);
    return TRUE;
}

}  // namespace emul
