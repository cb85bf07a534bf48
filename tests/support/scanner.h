// Scanner-socket records as bytes, built field by field for the tests of both ends of the socket.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace testsupport {

using Bytes = std::vector<uint8_t>;

inline Bytes words(std::initializer_list<uint32_t> values)
{
    Bytes out;
    for (uint32_t v : values)
        for (int i = 0; i < 32; i += 8)
            out.push_back(static_cast<uint8_t>(v >> i));
    return out;
}
inline Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
// A record: flag AA BB 77 AA, func, length (default: the payload's), payload.
inline Bytes unx_record(uint32_t func, const Bytes& payload, int64_t length = -1)
{
    const auto len = static_cast<uint32_t>(length < 0 ? static_cast<int64_t>(payload.size()) : length);
    return Bytes{0xAA, 0xBB, 0x77, 0xAA} + words({func, len}) + payload;
}
// The name record's payload: bOn and the name, NUL-filled to 256.
inline Bytes name_payload(int32_t on, const std::string& name)
{
    Bytes out = words({static_cast<uint32_t>(on)});
    out.resize(4 + 256, 0);
    std::memcpy(out.data() + 4, name.data(), std::min<std::size_t>(name.size(), 255));
    return out;
}
// One entry of the kernel's input-device listing.
inline std::string listed_device(unsigned vendor, unsigned product, const std::string& name, const std::string& phys,
                                 const std::string& handlers)
{
    char ids[96];
    std::snprintf(ids, sizeof ids, "I: Bus=0003 Vendor=%04x Product=%04x Version=0110\n", vendor, product);
    return std::string(ids) + "N: Name=\"" + name + "\"\nP: Phys=" + phys + "\nS: Sysfs=/devices/x\nU: Uniq=\n" +
           "H: Handlers=" + handlers + "\nB: PROP=0\nB: EV=120013\n\n";
}

}  // namespace testsupport
