// Cuts a fuzz input into the reads of a stream receiver: each a 16-bit
// little-endian length (0: a read that brought nothing) and up to that many
// bytes, bounded by the room left and by the input; at most 256 reads, so
// that empty reads over a full buffer do not starve the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Copies each read to buf + *held and calls take(bytes read); take moves
// *held on.
template <typename Take>
void for_each_read(const uint8_t* data, std::size_t size, uint8_t* buf, std::size_t buf_size, const int* held,
                   Take take)
{
    std::size_t at = 0;
    for (int reads = 0; reads < 256 && at + 2 <= size; ++reads) {
        std::size_t want = data[at] | static_cast<std::size_t>(data[at + 1]) << 8;
        at += 2;
        const std::size_t room = buf_size - static_cast<std::size_t>(*held);
        want = want < room ? want : room;
        want = want < size - at ? want : size - at;
        std::memcpy(buf + *held, data + at, want);
        at += want;
        take(want, at);
    }
}
