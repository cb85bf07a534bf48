// Every worked hex example of docs/protocol.md is the bytes the encoders produce, and each
// one named here is in the document. TACTORD_PRINT_EXAMPLES=1 prints them.
#include <gtest/gtest.h>
#include <linux/input.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "client/control_client.h"
#include "common/OrvelClient.h"
#include "common/OrvelClient_internal.h"
#include "common/keyboard_manager.h"
#include "common/screen_manager.h"
#include "common/system_msg.h"
#include "common/usb_gun/usbgun_records.h"
#include "support/scratch_root.h"
#include "support/screen_clients.h"

namespace {

using Bytes = std::vector<uint8_t>;

template <typename T>
Bytes bytes_of(const T& record)
{
    const auto* p = reinterpret_cast<const uint8_t*>(&record);
    return Bytes(p, p + sizeof record);
}

Bytes ipc_frame(const tactord::input_event& ev)
{
    uint8_t buf[64];
    const int n = build_ipc_frame(buf, sizeof buf, &ev);
    return n > 0 ? Bytes(buf, buf + n) : Bytes{};
}

// The examples by the name the document gives them.
std::map<std::string, std::function<Bytes()>> examples()
{
    return {
        {"mode-set-extern", [] {
             SystemMsg m = tools::make_request(TYPE_MODE_SET, 0);
             m.data.mode_info = {MODE_EXTERN, {0, 0, 0, 1, 2, 0, 0, 0, 0}, {}};
             return bytes_of(m);
         }},
        {"mode-get-reply", [] {
             SystemMsg m = tools::make_request(TYPE_MODE_GET, 0);
             m.data.nValue = MODE_EXTERN | MODE_IPC_WINDOW;
             return bytes_of(m);
         }},
        {"set-ipc-window", [] {
             SystemMsg m = tools::make_request(TYPE_SET_IPC_WINDOW, 0);
             m.data.ipc_win_info = {1, 0, {100, 900, 100, 700}};
             return bytes_of(m);
         }},
        // No calibration yet: the default transform is not reported.
        {"get-cali-para-reply", [] { return bytes_of(tools::make_request(TYPE_GET_TS_CALI_PARA, 0)); }},
        {"event-key-a", [] { return bytes_of(tactord::input_event{1700000000, 250000, EV_KEY, KEY_A, 1}); }},
        {"event-cursor-gained", [] { return bytes_of(tactord::input_event{0, 0, EV_PRIV_CURSOR_MOVED, 0, 0}); }},
        {"event-lock-caps-on", [] {  // the daemon's own conversion of a Caps Lock press
             input_init();
             tactord::input_event ev{1700000000, 250000, EV_KEY, KEY_CAPSLOCK, 1};
             handle_key_lock(get_screen_info(MAIN_SCREEN), &ev);
             return bytes_of(ev);
         }},
        {"event-locked-touch", [] {
             return bytes_of(tactord::input_event{1700000000, 0, EV_PRIV_LOCKED_TOUCH_BASE + EV_KEY, BTN_TOUCH, 1});
         }},
        {"scanner-route", [] {
             const ScanGunRouteInfo_t route{1, 2};
             uint8_t buf[UNX_HEAD_SIZE + sizeof route];
             return Bytes(buf, buf + put_unx_record(buf, UsbGunRouteInfoSetFun, &route, sizeof route));
         }},
        {"scanner-scan", [] {
             const uint8_t scan[] = {'1', '2', '3', '4', '5'};
             const UsbGunDatHead_t head = make_scan_head(0, 1, scan, sizeof scan);
             uint8_t payload[SCAN_HEAD_SIZE + sizeof scan];
             std::memcpy(payload, &head, sizeof head);
             std::memcpy(payload + sizeof head, scan, sizeof scan);
             uint8_t buf[UNX_HEAD_SIZE + sizeof payload];
             return Bytes(buf, buf + put_unx_record(buf, UsbGunReadFun, payload, sizeof payload));
         }},
        {"agent-key-a", [] { return ipc_frame({0, 0, EV_KEY, KEY_A, 1}); }},
        {"agent-move", [] { return ipc_frame({0, 0, EV_ABS, ABS_Y, 540}), ipc_frame({0, 0, EV_ABS, ABS_X, 960}); }},
        {"agent-caps-on", [] { return ipc_frame({0, 0, EV_PRIV_LOCK_KEY_STATE, 0, 1}); }},
        {"agent-window-size-answer", [] {
             Bytes b = bytes_of(IPCMsg_t{IPC_PKG_FLAG, 4 + sizeof(IPCWINSIZE), 0, MessageType_WindowsSize});
             const Bytes s = bytes_of(IPCWINSIZE{1, 1920, 1080});
             b.insert(b.end(), s.begin(), s.end());
             return b;
         }},
    };
}

// "<!-- example: NAME -->" followed by a fenced block of hex bytes.
std::map<std::string, Bytes> document_examples(const std::string& text)
{
    std::map<std::string, Bytes> out;
    const std::regex marker(R"(<!-- example: ([a-z0-9-]+) -->\s*```[a-z]*\n([^`]*)```)");
    for (std::sregex_iterator it(text.begin(), text.end(), marker), end; it != end; ++it) {
        Bytes bytes;
        const std::string block = (*it)[2].str();
        const std::regex byte(R"(\b[0-9a-f]{2}\b)");
        for (std::sregex_iterator b(block.begin(), block.end(), byte); b != std::sregex_iterator(); ++b)
            bytes.push_back(static_cast<uint8_t>(std::stoul(b->str(), nullptr, 16)));
        out[(*it)[1].str()] = bytes;
    }
    return out;
}

std::string hex(const Bytes& b)
{
    std::string s;
    for (std::size_t i = 0; i < b.size(); ++i) {
        char x[4];
        std::snprintf(x, sizeof x, "%02x", b[i]);
        s += x;
        s += (i % 16 == 15 || i + 1 == b.size()) ? "\n" : " ";
    }
    return s;
}

TEST(ProtocolDocument, WorkedExamplesAreTheEncodersBytes)
{
    testsupport::ScreenClients clients({2});
    set_ipc_window_size(1920, 1080);
    ipc_client_reset();
    const auto doc = document_examples(testsupport::read_file(TACTORD_SOURCE_DIR "/docs/protocol.md"));
    const bool print = std::getenv("TACTORD_PRINT_EXAMPLES") != nullptr;
    for (const auto& [name, encode] : examples()) {
        const Bytes want = encode();
        if (print) {
            std::printf("<!-- example: %s -->\n```hex\n%s```\n", name.c_str(), hex(want).c_str());
            continue;
        }
        ASSERT_FALSE(want.empty()) << name;
        const auto it = doc.find(name);
        ASSERT_NE(it, doc.end()) << "docs/protocol.md has no example " << name;
        EXPECT_EQ(hex(it->second), hex(want)) << "example " << name;
    }
    EXPECT_EQ(doc.size(), examples().size()) << "docs/protocol.md has examples no encoder checks";
}

}  // namespace
