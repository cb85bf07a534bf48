#include "sim/scanner_client.h"

#include <linux/input.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "common/usb_gun/usbgun_c.h"
#include "sim/evdev_testbed.h"
#include "sim/keys.h"

namespace emul {
namespace {

// The library's inventory callback takes no context.
std::atomic<Transcript*> g_transcript{nullptr};
// Set once the service has sent its first inventory.
std::atomic<bool> g_inventory_seen{false};

int on_inventory(uint8_t* data, int len)
{
    Transcript* transcript = g_transcript.load();
    if (transcript == nullptr || len != static_cast<int>(sizeof(UsbDevInfo_t)))
        return 0;
    g_inventory_seen.store(true);
    UsbDevInfo_t list;
    std::memcpy(&list, data, sizeof list);
    const int count = list.usbdev_total_count < 0 ? 0 : std::min(list.usbdev_total_count, USBDEV_MAX_COUNT);
    std::string text = "inventory of " + std::to_string(count) + " USB input device(s):";
    for (int i = 0; i < count; ++i) {
        const UsbDev_Desc_t& d = list.usb_desc[i];
        text += (i == 0 ? " " : ", ") + std::string(d.devname, strnlen(d.devname, sizeof d.devname)) + " (event" +
                std::to_string(d.event_index) + ")";
    }
    transcript->line("scan-client", "<<", text);
    return 0;
}

std::string escaped(char c)
{
    if (c == '\r')
        return "\\r";
    if (c == '\n')
        return "\\n";
    if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f) {
        char hex[8];
        std::snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned char>(c));
        return hex;
    }
    return std::string(1, c);
}

}  // namespace

std::string scan_text(int datatype, const uint8_t* data, std::size_t len)
{
    std::string text;
    if (datatype != eKbdData) {
        for (std::size_t i = 0; i < len; ++i)
            text += escaped(static_cast<char>(data[i]));
        return text;
    }
    // The reader passes the node's records as the kernel wrote them, in
    // the layout of the daemon's architecture.
    bool shift = false;
    for (const tactord::input_event& ev : EvdevTestbed::decode_records(daemon_is_target(), data, len)) {
        if (ev.type != EV_KEY)
            continue;
        if (ev.code == KEY_LEFTSHIFT || ev.code == KEY_RIGHTSHIFT) {
            shift = ev.value != 0;
            continue;
        }
        if (ev.value != 1)
            continue;
        const auto c = char_for(ev.code, shift);
        text += c ? escaped(*c) : "[" + std::to_string(ev.code) + "]";
    }
    return text;
}

ScannerClient::~ScannerClient()
{
    stop_.store(true);
    if (reader_.joinable())
        reader_.join();
    // The library's receiver thread lives as long as the process: it must
    // not report into a transcript that is gone.
    g_transcript.store(nullptr);
}

bool ScannerClient::configure(const std::string& name, bool on, int screen)
{
    if (!connected_) {
        g_transcript.store(&transcript_);
        if (UsbGunInit({on_inventory, nullptr}) != 0)
            return false;
        connected_ = true;
        reader_ = std::thread([this] { read_scans(); });
        // The service looks a scanner's name up in its inventory, which it
        // takes only once a client is there: a name declared before the first
        // inventory finds nothing. A client picks its scanners from the
        // inventory, so it waits for it (a few seconds at most).
        for (int i = 0; i < 100 && !g_inventory_seen.load(); ++i)
            usleep(50000);
    }
    return UsbGunConfigSet(name.c_str(), on ? 1 : 0) == 0 &&
           UsbGunSetRouteInfo(screen < 0 ? eModeFocus : eModeFixed, screen < 0 ? eScreenMain : screen) == 0;
}

void ScannerClient::read_scans()
{
    // Reads may end inside a scan: bytes are kept until a whole one is there.
    std::vector<uint8_t> held;
    uint8_t buf[4096];
    while (!stop_.load()) {
        const int n = UsbGunRead(buf, sizeof buf);
        if (n <= 0) {
            usleep(20000);
            continue;
        }
        held.insert(held.end(), buf, buf + n);
        UsbGunDatHead_t head;
        while (held.size() >= sizeof head) {
            std::memcpy(&head, held.data(), sizeof head);
            if (head.flag != USBGUN_DAT_FLAG || head.length > 32768) {
                held.clear();  // not at a head: what is held cannot be placed
                break;
            }
            if (held.size() < sizeof head + head.length)
                break;
            transcript_.line("scan-client", "<<",
                             "scan for screen " + std::to_string(head.slot) +
                                 (head.datatype == eKbdData ? " from a keyboard-wedge scanner: " : " from a CDC scanner: ") +
                                 scan_text(head.datatype, held.data() + sizeof head, head.length));
            held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(sizeof head + head.length));
        }
    }
}

}  // namespace emul
