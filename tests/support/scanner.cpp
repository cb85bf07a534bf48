#include "support/scanner.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace testsupport {

Bytes words(std::initializer_list<uint32_t> values)
{
    Bytes out;
    for (uint32_t v : values)
        for (int i = 0; i < 4; ++i)
            out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    return out;
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes unx_record(uint32_t func, const Bytes& payload, int64_t length)
{
    const uint32_t len = length < 0 ? static_cast<uint32_t>(payload.size()) : static_cast<uint32_t>(length);
    return Bytes{0xAA, 0xBB, 0x77, 0xAA} + words({func, len}) + payload;
}

Bytes name_payload(int32_t on, const std::string& name)
{
    Bytes out = words({static_cast<uint32_t>(on)});
    out.resize(4 + 256, 0);
    std::memcpy(out.data() + 4, name.data(), std::min<std::size_t>(name.size(), 255));
    return out;
}

uint32_t word_at(const Bytes& b, std::size_t offset)
{
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i)
        v = (v << 8) | b.at(offset + i);
    return v;
}

std::string listed_device(unsigned vendor, unsigned product, const std::string& name, const std::string& phys,
                          const std::string& handlers)
{
    char ids[96];
    std::snprintf(ids, sizeof ids, "I: Bus=0003 Vendor=%04x Product=%04x Version=0110\n", vendor, product);
    return std::string(ids) + "N: Name=\"" + name + "\"\nP: Phys=" + phys + "\nS: Sysfs=/devices/x\nU: Uniq=\n" +
           "H: Handlers=" + handlers + "\nB: PROP=0\nB: EV=120013\n\n";
}

}  // namespace testsupport
