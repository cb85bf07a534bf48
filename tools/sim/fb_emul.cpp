#include "sim/fb_emul.h"

#include <linux/fb.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "sim/png.h"

namespace emul {
namespace {

constexpr unsigned kBytesPerPixel = 4;

// Answers a read ioctl with the record rec.
template <typename Record>
void answer(UMockdevIoctlClient* client, const Record& rec)
{
    UMockdevIoctlData* data = umockdev_ioctl_data_resolve(umockdev_ioctl_client_get_arg(client), 0, sizeof rec, nullptr);
    if (data == nullptr) {
        umockdev_ioctl_client_complete(client, -1, EFAULT);
        return;
    }
    std::memcpy(data->data, &rec, sizeof rec);
    umockdev_ioctl_client_complete(client, 0, 0);
    g_object_unref(data);
}

}  // namespace

FramebufferEmulator::FramebufferEmulator(UMockdevTestbed* testbed, unsigned xres, unsigned yres)
    : testbed_(testbed), handler_(umockdev_ioctl_base_new()), xres_(xres), yres_(yres)
{
    g_signal_connect(handler_, "handle-ioctl", G_CALLBACK(&FramebufferEmulator::on_ioctl), this);
    umockdev_testbed_attach_ioctl(testbed_, "/dev/fb0", handler_, nullptr);
    // A node given contents is a plain file: one black pixel here, grown to
    // the whole screen below (zeros: black) rather than spelt out in hex.
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed_,
                                          "P: /devices/virtual/graphics/fb0\n"
                                          "N: fb0=00000000\n"
                                          "E: SUBSYSTEM=graphics\n"
                                          "E: DEVNAME=/dev/fb0\n"
                                          "A: dev=29:0\n",
                                          &error))
        g_error_free(error);
    if (truncate(pixels_path().c_str(), static_cast<off_t>(xres_) * yres_ * kBytesPerPixel) != 0) {
        // Without the file the node answers its ioctls but holds no pixels;
        // a snapshot then says so.
    }
}

FramebufferEmulator::~FramebufferEmulator()
{
    umockdev_testbed_detach_ioctl(testbed_, "/dev/fb0", nullptr);
    g_object_unref(handler_);
}

std::string FramebufferEmulator::pixels_path() const
{
    gchar* root = umockdev_testbed_get_root_dir(testbed_);
    std::string path = std::string(root) + "/dev/fb0";
    g_free(root);
    return path;
}

bool FramebufferEmulator::snapshot(const std::string& png_path, std::string& error) const
{
    std::ifstream in(pixels_path(), std::ios::binary);
    const std::vector<uint8_t> xrgb((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::size_t pixels = std::size_t{xres_} * yres_;
    if (xrgb.size() < pixels * kBytesPerPixel) {
        error = "the emulated /dev/fb0 holds no screen (" + pixels_path() + ")";
        return false;
    }
    std::vector<uint8_t> rgb(pixels * 3);
    for (std::size_t i = 0; i < pixels; ++i) {
        // Little-endian XRGB: blue, green, red, unused.
        rgb[3 * i] = xrgb[4 * i + 2];
        rgb[3 * i + 1] = xrgb[4 * i + 1];
        rgb[3 * i + 2] = xrgb[4 * i];
    }
    return write_png(png_path, xres_, yres_, rgb, error);
}

gboolean FramebufferEmulator::on_ioctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self)
{
    auto* fb = static_cast<FramebufferEmulator*>(self);
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    if (request == FBIOGET_VSCREENINFO) {
        fb_var_screeninfo info{};
        info.xres = info.xres_virtual = fb->xres_;
        info.yres = info.yres_virtual = fb->yres_;
        info.bits_per_pixel = 8 * kBytesPerPixel;
        info.red = {16, 8, 0};
        info.green = {8, 8, 0};
        info.blue = {0, 8, 0};
        info.transp = {24, 0, 0};
        answer(client, info);
    } else if (request == FBIOGET_FSCREENINFO) {
        fb_fix_screeninfo info{};
        std::strncpy(info.id, "tactord-sim fb", sizeof info.id - 1);
        info.smem_len = fb->xres_ * fb->yres_ * kBytesPerPixel;
        info.type = FB_TYPE_PACKED_PIXELS;
        info.visual = FB_VISUAL_TRUECOLOR;
        info.line_length = fb->xres_ * kBytesPerPixel;
        answer(client, info);
    } else {
        umockdev_ioctl_client_complete(client, -1, ENOTTY);
    }
    return TRUE;
}

}  // namespace emul
