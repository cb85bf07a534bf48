#include "sim/png.h"

#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace emul {
namespace {

void put_u32(std::vector<uint8_t>& out, uint32_t v)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(v >> shift));
}

// A chunk: length, type, data, and the CRC-32 of type and data.
void put_chunk(std::vector<uint8_t>& out, const char (&type)[5], const uint8_t* data, std::size_t len)
{
    put_u32(out, static_cast<uint32_t>(len));
    const std::size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data, data + len);
    put_u32(out, static_cast<uint32_t>(crc32(0, out.data() + start, static_cast<uInt>(out.size() - start))));
}

}  // namespace

bool write_png(const std::string& path, unsigned width, unsigned height, const std::vector<uint8_t>& rgb,
               std::string& error)
{
    const std::size_t row = std::size_t{width} * 3;
    if (width == 0 || height == 0 || rgb.size() != row * height) {
        error = "no image to write";
        return false;
    }
    // Each row behind its filter byte: 0, none (a framebuffer of flat
    // colours compresses well without prediction).
    std::vector<uint8_t> raw;
    raw.reserve((row + 1) * height);
    for (unsigned y = 0; y < height; ++y) {
        raw.push_back(0);
        raw.insert(raw.end(), rgb.begin() + static_cast<std::ptrdiff_t>(y * row),
                   rgb.begin() + static_cast<std::ptrdiff_t>((y + 1) * row));
    }
    uLongf packed_len = compressBound(static_cast<uLong>(raw.size()));
    std::vector<uint8_t> packed(packed_len);
    if (compress2(packed.data(), &packed_len, raw.data(), static_cast<uLong>(raw.size()), Z_BEST_SPEED) != Z_OK) {
        error = "cannot compress the image";
        return false;
    }
    std::vector<uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    std::vector<uint8_t> header;
    put_u32(header, width);
    put_u32(header, height);
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8 bits, RGB, deflate, adaptive filters, no interlace
    put_chunk(png, "IHDR", header.data(), header.size());
    put_chunk(png, "IDAT", packed.data(), packed_len);
    put_chunk(png, "IEND", nullptr, 0);

    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) {
        error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(png.data(), 1, png.size(), f) == png.size();
    if (std::fclose(f) != 0 || !written) {
        error = "cannot write " + path;
        return false;
    }
    return true;
}

}  // namespace emul
