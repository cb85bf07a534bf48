// Scanner-socket records as bytes, built field by field for the tests of
// both ends of the socket.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testsupport {

using Bytes = std::vector<uint8_t>;

// Little-endian words.
Bytes words(std::initializer_list<uint32_t> values);
Bytes operator+(Bytes a, const Bytes& b);
// A record: flag AA BB 77 AA, func, length (default: the payload's), payload.
Bytes unx_record(uint32_t func, const Bytes& payload, int64_t length = -1);
// The name record's payload: bOn and the name, NUL-filled to 256.
Bytes name_payload(int32_t on, const std::string& name);
// The 32-bit word at offset.
uint32_t word_at(const Bytes& b, std::size_t offset);

// One line of the kernel's input-device listing.
std::string listed_device(unsigned vendor, unsigned product, const std::string& name, const std::string& phys,
                          const std::string& handlers);

}  // namespace testsupport
