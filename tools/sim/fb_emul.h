// A umockdev stand-in for the framebuffer "/dev/fb0" in an existing testbed:
// a node backed by a file of the screen's pixels (32 bits each, XRGB8888,
// rows of xres * 4 bytes), so a program may write or map it as it would the
// real one; FBIOGET_VSCREENINFO and FBIOGET_FSCREENINFO answer the size and
// that layout.
#pragma once

#include <umockdev.h>

#include <string>

namespace emul {

class FramebufferEmulator {
public:
    FramebufferEmulator(UMockdevTestbed* testbed, unsigned xres, unsigned yres);
    ~FramebufferEmulator();
    FramebufferEmulator(const FramebufferEmulator&) = delete;
    FramebufferEmulator& operator=(const FramebufferEmulator&) = delete;

    // The file behind the node, in the testbed's directory.
    std::string pixels_path() const;
    // Writes what the screen shows as a PNG file; false with the reason in error.
    bool snapshot(const std::string& png_path, std::string& error) const;

private:
    static gboolean on_ioctl(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);

    UMockdevTestbed* testbed_;
    UMockdevIoctlBase* handler_;
    unsigned xres_;
    unsigned yres_;
};

}  // namespace emul
