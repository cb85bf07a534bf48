#include "sim/input_listing.h"

#include <linux/input.h>

#include <algorithm>
#include <climits>
#include <cstdio>

namespace emul {
namespace {

bool has(const std::vector<unsigned>& bits, unsigned bit)
{
    return std::find(bits.begin(), bits.end(), bit) != bits.end();
}

// A bitmap as the kernel prints it: words of the machine's long, the most
// significant first, leading zero words left out, later words zero-padded.
std::string bitmap_text(const std::vector<unsigned>& bits)
{
    constexpr unsigned kWordBits = sizeof(unsigned long) * CHAR_BIT;
    const unsigned top = bits.empty() ? 0 : *std::max_element(bits.begin(), bits.end());
    std::vector<unsigned long> words(top / kWordBits + 1, 0);
    for (const unsigned b : bits)
        words[b / kWordBits] |= 1UL << (b % kWordBits);
    std::string text;
    char word[24];
    for (std::size_t i = words.size(); i-- > 0;) {
        if (text.empty() && words[i] == 0 && i > 0)
            continue;
        if (text.empty())
            std::snprintf(word, sizeof word, "%lx", words[i]);
        else
            std::snprintf(word, sizeof word, " %0*lx", static_cast<int>(kWordBits / 4), words[i]);
        text += word;
    }
    return text;
}

// Stable made-up USB ids: a device keeps its product id from run to run.
unsigned product_id(const std::string& name)
{
    unsigned h = 2166136261u;  // FNV-1a
    for (const unsigned char c : name)
        h = (h ^ c) * 16777619u;
    return h & 0xffffu;
}

}  // namespace

std::string input_devices_text(const std::vector<ListedNode>& nodes)
{
    std::string text;
    int mice = 0;
    for (const ListedNode& n : nodes) {
        const TestDevice& d = n.dev;
        const bool usb = d.phys.rfind("usb", 0) == 0;
        char ids[80];
        std::snprintf(ids, sizeof ids, "I: Bus=%04x Vendor=%04x Product=%04x Version=0110\n", usb ? BUS_USB : BUS_HOST,
                      usb ? 0x1209u : 0u, usb ? product_id(d.name) : 0u);
        std::string handlers;
        const bool keys = std::any_of(d.key.begin(), d.key.end(), [](unsigned k) { return k < BTN_MISC; });
        if (keys)
            handlers += "sysrq kbd ";
        if (has(d.ev, EV_LED))
            handlers += "leds ";
        const bool pointer = (has(d.rel, REL_X) && has(d.key, BTN_LEFT)) || (has(d.abs, ABS_X) && has(d.key, BTN_TOUCH));
        if (pointer)
            handlers += "mouse" + std::to_string(mice++) + " ";
        handlers += "event" + std::to_string(n.node) + " ";
        text += ids;
        text += "N: Name=\"" + d.name + "\"\nP: Phys=" + d.phys + "\nS: Sysfs=" + n.sysfs + "\nU: Uniq=\nH: Handlers=" +
                handlers + "\nB: PROP=0\nB: EV=" + bitmap_text(d.ev) + "\n";
        const std::pair<unsigned, const char*> maps[] = {{EV_KEY, "KEY"}, {EV_REL, "REL"}, {EV_ABS, "ABS"}};
        for (const auto& [type, label] : maps) {
            const std::vector<unsigned>& bits = type == EV_KEY ? d.key : type == EV_REL ? d.rel : d.abs;
            if (has(d.ev, type))
                text += std::string("B: ") + label + "=" + bitmap_text(bits) + "\n";
        }
        if (has(d.ev, EV_LED))
            text += "B: LED=7\n";  // Num, Caps and Scroll Lock
        text += "\n";
    }
    return text;
}

}  // namespace emul
