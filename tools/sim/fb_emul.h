// A umockdev stand-in for the framebuffer "/dev/fb0" in an existing testbed:
// FBIOGET_VSCREENINFO answers the visible size given here.
#pragma once

#include <umockdev.h>

namespace emul {

class FramebufferEmulator {
public:
    FramebufferEmulator(UMockdevTestbed* testbed, unsigned xres, unsigned yres);
    ~FramebufferEmulator();
    FramebufferEmulator(const FramebufferEmulator&) = delete;
    FramebufferEmulator& operator=(const FramebufferEmulator&) = delete;

private:
    static gboolean on_ioctl(UMockdevIoctlBase* base, UMockdevIoctlClient* client, gpointer self);

    UMockdevTestbed* testbed_;
    UMockdevIoctlBase* handler_;
    unsigned xres_;
    unsigned yres_;
};

}  // namespace emul
