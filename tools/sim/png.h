// Writes an image as a PNG file: 8-bit RGB, no interlacing, one deflate
// stream (zlib) for the filtered rows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace emul {

// rgb holds width * height pixels of three bytes each, row by row from the
// top. False, with the reason in error, when the file cannot be written.
bool write_png(const std::string& path, unsigned width, unsigned height, const std::vector<uint8_t>& rgb,
               std::string& error);

}  // namespace emul
