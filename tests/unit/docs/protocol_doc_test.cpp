// Every worked hex example of docs/protocol.md is the bytes the code's encoders produce, and each one
// named here is in the document (a failure prints the encoder's bytes in the document's layout).
#include "client/control_client.h"
#include "common/keyboard_manager.h"
#include "common/usb_gun/usbgun_records.h"
#include "support/unit_common.h"

namespace {

using tactord::input_event;

template <typename T>
Bytes bytes_of(const T& record)
{
    return Bytes(reinterpret_cast<const uint8_t*>(&record), reinterpret_cast<const uint8_t*>(&record + 1));
}
Bytes request(int32_t type, const std::function<void(SystemMsg&)>& fill = [](SystemMsg&) {})
{
    SystemMsg m = tools::make_request(type, 0);
    fill(m);
    return bytes_of(m);
}
Bytes ipc_frame(const input_event& ev)
{
    uint8_t buf[64];
    const int n = build_ipc_frame(buf, sizeof buf, &ev);
    return n > 0 ? Bytes(buf, buf + n) : Bytes{};
}
Bytes scanner_record(uint32_t func, const Bytes& payload)
{
    Bytes out(UNX_HEAD_SIZE + payload.size());
    out.resize(static_cast<std::size_t>(put_unx_record(out.data(), func, payload.data(), payload.size())));
    return out;
}
// Sixteen bytes a line, as the document shows them.
std::string hex(const Bytes& b)
{
    std::string s;
    char x[4];
    for (std::size_t i = 0; i < b.size(); ++i) {
        std::snprintf(x, sizeof x, "%02x", b[i]);
        s += std::string(x) + ((i % 16 == 15 || i + 1 == b.size()) ? "\n" : " ");
    }
    return s;
}

TEST(ProtocolDocument, WorkedExamplesAreTheEncodersBytes)
{
    testsupport::ScreenClients clients({2});
    set_ipc_window_size(1920, 1080);
    ipc_client_reset();
    const std::map<std::string, std::function<Bytes()>> encoders = {
        {"mode-set-extern", [] { return request(TYPE_MODE_SET, [](SystemMsg& m) {
             m.data.mode_info = {MODE_EXTERN, {0, 0, 0, 1, 2, 0, 0, 0, 0}, {}}; }); }},
        {"mode-get-reply", [] { return request(TYPE_MODE_GET, [](SystemMsg& m) { m.data.nValue = MODE_EXTERN | MODE_IPC_WINDOW; }); }},
        {"set-ipc-window", [] { return request(TYPE_SET_IPC_WINDOW, [](SystemMsg& m) {
             m.data.ipc_win_info = {1, 0, {100, 900, 100, 700}}; }); }},
        {"get-cali-para-reply", [] { return request(TYPE_GET_TS_CALI_PARA); }},  // the default transform is not reported
        {"event-key-a", [] { return bytes_of(input_event{1700000000, 250000, EV_KEY, KEY_A, 1}); }},
        {"event-cursor-gained", [] { return bytes_of(input_event{0, 0, EV_PRIV_CURSOR_MOVED, 0, 0}); }},
        {"event-lock-caps-on", [] {  // the daemon's own conversion of a Caps Lock press
             input_init();
             input_event ev{1700000000, 250000, EV_KEY, KEY_CAPSLOCK, 1};
             handle_key_lock(get_screen_info(MAIN_SCREEN), &ev);
             return bytes_of(ev);
         }},
        {"event-locked-touch", [] { return bytes_of(input_event{1700000000, 0, EV_PRIV_LOCKED_TOUCH_BASE + EV_KEY, BTN_TOUCH, 1}); }},
        {"scanner-route", [] { return scanner_record(UsbGunRouteInfoSetFun, bytes_of(ScanGunRouteInfo_t{1, 2})); }},
        {"scanner-scan", [] {
             const uint8_t scan[] = {'1', '2', '3', '4', '5'};
             Bytes payload = bytes_of(make_scan_head(0, 1, scan, sizeof scan));
             payload.insert(payload.end(), scan, scan + sizeof scan);
             return scanner_record(UsbGunReadFun, payload);
         }},
        {"agent-key-a", [] { return ipc_frame({0, 0, EV_KEY, KEY_A, 1}); }},
        {"agent-move", [] { return ipc_frame({0, 0, EV_ABS, ABS_Y, 540}), ipc_frame({0, 0, EV_ABS, ABS_X, 960}); }},
        {"agent-caps-on", [] { return ipc_frame({0, 0, EV_PRIV_LOCK_KEY_STATE, 0, 1}); }},
        {"agent-window-size-answer", [] { return testsupport::agent_frame(MessageType_WindowsSize, {1, 1920, 1080}); }},
    };
    // "<!-- example: NAME -->" followed by a fenced block of hex bytes.
    const std::string doc = testsupport::read_file(TACTORD_SOURCE_DIR "/docs/protocol.md");
    const std::regex marker(R"(<!-- example: ([a-z0-9-]+) -->\s*```hex\n([^`]*)```)");
    std::set<std::string> shown;
    for (std::sregex_iterator it(doc.begin(), doc.end(), marker), end; it != end; ++it) {
        shown.insert((*it)[1].str());
        const auto encoder = encoders.find((*it)[1].str());
        ASSERT_NE(encoder, encoders.end()) << "no encoder checks the example " << (*it)[1];
        const Bytes want = encoder->second();
        ASSERT_FALSE(want.empty()) << (*it)[1];
        EXPECT_EQ((*it)[2].str(), hex(want)) << "example " << (*it)[1];
    }
    EXPECT_EQ(shown.size(), encoders.size()) << "docs/protocol.md lacks an example an encoder produces";
}

}  // namespace
