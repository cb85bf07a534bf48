// Crosshair targets on a Linux framebuffer ("/dev/fb0"), as commissioning
// tools draw them: written with pwrite at the visible geometry the driver
// reports, and what was under them put back when they are cleared.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tools {

class Framebuffer {
public:
    // Opens path and reads its geometry; null with error set on failure.
    static std::optional<Framebuffer> open(const std::string& path, std::string& error);
    Framebuffer(Framebuffer&& other) noexcept;
    Framebuffer& operator=(Framebuffer&&) = delete;
    Framebuffer(const Framebuffer&) = delete;
    Framebuffer& operator=(const Framebuffer&) = delete;
    ~Framebuffer();

    unsigned width() const { return width_; }
    unsigned height() const { return height_; }

    // Draws a crosshair centred on (x, y), clearing the previous one.
    void crosshair(int x, int y);
    // Puts back the pixels under the crosshair.
    void clear();

    // Half the length of a crosshair's arms, in pixels.
    static constexpr int kArm = 20;

private:
    Framebuffer(int fd, unsigned width, unsigned height, unsigned bytes, unsigned stride, std::size_t origin)
        : fd_(fd), width_(width), height_(height), bytes_(bytes), stride_(stride), origin_(origin) {}
    void paint(int x, int y);

    struct Saved {
        off_t at;
        std::vector<uint8_t> bytes;
    };
    int fd_ = -1;
    unsigned width_ = 0;
    unsigned height_ = 0;
    unsigned bytes_ = 4;   // per pixel
    unsigned stride_ = 0;  // bytes per line
    std::size_t origin_ = 0;  // offset of the visible area's first pixel
    std::vector<Saved> saved_;
};

}  // namespace tools
