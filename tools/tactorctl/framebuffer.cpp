#include "tactorctl/framebuffer.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tools {

std::optional<Framebuffer> Framebuffer::open(const std::string& path, std::string& error)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        error = "cannot open the framebuffer " + path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    fb_var_screeninfo var{};
    if (ioctl(fd, FBIOGET_VSCREENINFO, &var) != 0 || var.xres == 0 || var.yres == 0 || var.bits_per_pixel % 8 != 0 ||
        var.bits_per_pixel == 0 || var.bits_per_pixel > 32) {
        error = path + " reports no usable geometry (FBIOGET_VSCREENINFO)";
        close(fd);
        return std::nullopt;
    }
    const unsigned bytes = var.bits_per_pixel / 8;
    // A driver that does not give its line length packs the lines.
    fb_fix_screeninfo fix{};
    const unsigned stride = ioctl(fd, FBIOGET_FSCREENINFO, &fix) == 0 && fix.line_length != 0
                                ? fix.line_length
                                : var.xres_virtual * bytes;
    const std::size_t origin = static_cast<std::size_t>(var.yoffset) * stride + static_cast<std::size_t>(var.xoffset) * bytes;
    return Framebuffer(fd, var.xres, var.yres, bytes, stride, origin);
}

Framebuffer::Framebuffer(Framebuffer&& other) noexcept
    : fd_(other.fd_), width_(other.width_), height_(other.height_), bytes_(other.bytes_), stride_(other.stride_),
      origin_(other.origin_), saved_(std::move(other.saved_))
{
    other.fd_ = -1;
}

Framebuffer::~Framebuffer()
{
    if (fd_ >= 0) {
        clear();
        close(fd_);
    }
}

void Framebuffer::paint(int x, int y)
{
    if (x < 0 || y < 0 || static_cast<unsigned>(x) >= width_ || static_cast<unsigned>(y) >= height_)
        return;
    Saved s{static_cast<off_t>(origin_ + static_cast<std::size_t>(y) * stride_ + static_cast<std::size_t>(x) * bytes_),
            std::vector<uint8_t>(bytes_, 0)};
    // Past the end of a file-backed buffer reads nothing: black.
    if (pread(fd_, s.bytes.data(), bytes_, s.at) < 0)
        return;
    // White in every pixel format: all bits set.
    const std::vector<uint8_t> white(bytes_, 0xFF);
    if (pwrite(fd_, white.data(), bytes_, s.at) == static_cast<ssize_t>(bytes_))
        saved_.push_back(std::move(s));
}

void Framebuffer::crosshair(int x, int y)
{
    clear();
    for (int d = -kArm; d <= kArm; ++d) {
        paint(x + d, y);
        if (d != 0)
            paint(x, y + d);
    }
}

void Framebuffer::clear()
{
    // In reverse, so a pixel saved twice gets its first contents back.
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it)
        if (pwrite(fd_, it->bytes.data(), it->bytes.size(), it->at) < 0)
            break;
    saved_.clear();
}

}  // namespace tools
