#include "client/record_text.h"

#include <linux/input.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "client/input_names.h"

namespace tools {

std::string json_escape(std::string_view text)
{
    std::string out;
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned char>(c));
            out += buf;
        } else {
            out += c;
        }
    }
    return out;
}

namespace {

constexpr std::array<const char*, 25> kTypeNames = {
    "TYPE_INPUT_INIT",        "TYPE_MODE_SET",         "TYPE_MODE_GET",
    "TYPE_LED_CTRL",          "TYPE_IPC_WINDOW",       "TYPE_IPC_CONNECTED",
    "TYPE_VNC_INPUT",         "TYPE_SET_DIRECTION",    "TYPE_SET_CURSOR_TIME",
    "TYPE_SET_IPC_IP",        "TYPE_SEND_IPC_CMD",     "TYPE_GET_IPC_WIN_INFO",
    "TYPE_ORVEL_EXT_SCR_EXIST", "TYPE_SET_IPC_WINDOW", "TYPE_GET_VERSION",
    "TYPE_SET_MOUSE_SENSITIVITY", "TYPE_RECOVERY_SCREEN", "TYPE_ENTER_TS_CALI_MODE",
    "TYPE_GET_TS_CALI_POINT", "TYPE_CALI_TS",          "TYPE_QUIT_TS_CALI_MODE",
    "TYPE_CHECK_TS_TYPE",     "TYPE_SET_TS_CALI_PARA", "TYPE_GET_TS_CALI_PARA",
    "TYPE_SWITCH_TOUCH_SCREEN"};
static_assert(kTypeNames.size() == TYPE_MAX + 1);

struct ModeWord {
    int bit;
    const char* word;
};
constexpr std::array<ModeWord, 5> kModeWords = {{{MODE_CLONE, "clone"},
                                                 {MODE_EXTERN, "extern"},
                                                 {MODE_DOUBLE_PLAYER, "double-player"},
                                                 {MODE_IPC_WINDOW, "ipc-window"},
                                                 {MODE_IPC_EXTERN, "ipc-extern"}}};

std::string hex(unsigned v)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%x", v);
    return buf;
}

std::string type_text(uint16_t type)
{
    const char* name = event_type_name(type);
    return name != nullptr ? name : "type " + hex(type);
}

std::string code_text(uint16_t type, uint16_t code)
{
    const char* name = event_code_name(type, code);
    return name != nullptr ? name : "code " + hex(code);
}

// A standard event: type, code and the value in words where it has some.
std::string standard_text(const tactord::input_event& ev)
{
    std::string text = type_text(ev.type) + " " + code_text(ev.type, ev.code);
    if (ev.type == EV_KEY && ev.value >= 0 && ev.value <= 2)
        return text + (ev.value == 0 ? " release" : ev.value == 1 ? " press" : " repeat");
    if (ev.type == EV_LED && (ev.value == 0 || ev.value == 1))
        return text + (ev.value != 0 ? " on" : " off");
    if (ev.type == EV_SYN && ev.value == 0)
        return text;
    return text + " " + std::to_string(ev.value);
}

// "record" of a private type, empty for a standard one.
const char* private_kind(uint16_t type)
{
    switch (type) {
    case EV_PRIV_FOCUS_MOVED: return "focus";
    case EV_PRIV_CURSOR_MOVED: return "cursor";
    case EV_PRIV_LOCK_KEY_STATE: return "lock";
    case EV_PRIV_CURSOR_SHOW: return "cursor-show";
    default:
        return type >= EV_PRIV_LOCKED_TOUCH_BASE && type < EV_PRIV_LOCKED_TOUCH_BASE + 4 ? "locked-touch" : "";
    }
}

std::string field(const char* key, const std::string& text)
{
    return std::string(",\"") + key + "\":\"" + json_escape(text) + "\"";
}

std::string field(const char* key, long long value)
{
    return std::string(",\"") + key + "\":" + std::to_string(value);
}

std::string rect_text(const RECT_BOX& r)
{
    return "(" + std::to_string(r.x1) + "," + std::to_string(r.y1) + ")-(" + std::to_string(r.x2) + "," +
           std::to_string(r.y2) + ")";
}

// The payload of a reply in words (without the type).
std::string reply_payload(const SystemMsg& msg)
{
    const auto& d = msg.data;
    switch (msg.type) {
    case TYPE_MODE_GET:
        return mode_name(d.nValue);
    case TYPE_IPC_CONNECTED:
        return d.ipc_connected == 1 ? "connected" : "not connected";
    case TYPE_GET_IPC_WIN_INFO:
        return d.ipc_win_info.isIpcWin != 0 ? "open on screen " + std::to_string(d.ipc_win_info.index) + " " +
                                                  rect_text(d.ipc_win_info.ipcWindow)
                                            : "closed";
    case TYPE_ORVEL_EXT_SCR_EXIST:
        return "extended screen " + std::to_string(d.ipc_ext_scr_exist);
    case TYPE_GET_VERSION: {
        const std::string agent = bounded_text(d.version.orvelVer.data(), d.version.orvelVer.size());
        return "tactord " + bounded_text(d.version.tactordVer.data(), d.version.tactordVer.size()) + ", agent " +
               (agent.empty() ? "-" : agent);
    }
    case TYPE_CALI_TS:
        return "result " + std::to_string(d.ts_cali_data.result);
    case TYPE_CHECK_TS_TYPE:
        return "touchscreen type " + std::to_string(d.ts_type);
    case TYPE_GET_TS_CALI_PARA: {
        std::string text = "seat " + std::to_string(d.ts_cali_para[TS_CALI_PARA_INDEX]) + ":";
        for (int i = 0; i < CALI_PARAM_NUM; ++i) {
            text += ' ';
            text += std::to_string(d.ts_cali_para[i]);
        }
        return text;
    }
    default:
        return "value " + std::to_string(d.nValue);
    }
}

}  // namespace

const char* msg_type_name(int32_t type)
{
    return type >= 0 && type <= TYPE_MAX ? kTypeNames[static_cast<std::size_t>(type)] : nullptr;
}

std::string bounded_text(const char* text, std::size_t len)
{
    return std::string(text, strnlen(text, len));
}

std::string mode_name(int mode)
{
    if (mode == 0)
        return "none";
    std::string out;
    int rest = mode;
    for (const ModeWord& w : kModeWords) {
        if ((mode & w.bit) == 0)
            continue;
        out += (out.empty() ? "" : " ") + std::string(w.word);
        rest &= ~w.bit;
    }
    if (rest != 0)
        out += (out.empty() ? "" : " ") + hex(static_cast<unsigned>(rest));
    return out;
}

std::optional<int> parse_mode_word(std::string_view word)
{
    for (const ModeWord& w : kModeWords)
        if (word == w.word && w.bit != MODE_IPC_WINDOW)  // the IPC window has requests of its own
            return w.bit;
    return std::nullopt;
}

std::string describe_event(const tactord::input_event& ev)
{
    switch (ev.type) {
    case EV_PRIV_FOCUS_MOVED:
    case EV_PRIV_CURSOR_MOVED: {
        const std::string what = ev.type == EV_PRIV_FOCUS_MOVED ? "focus" : "cursor";
        if (ev.code <= 1)
            return what + (ev.code == 0 ? " gained" : " lost");
        return what + " code " + std::to_string(ev.code);
    }
    case EV_PRIV_LOCK_KEY_STATE: {
        static constexpr std::array<const char*, 3> kLocks = {"Caps", "Num", "Scroll"};
        const std::string lock = ev.code < kLocks.size() ? kLocks[ev.code] : "code " + std::to_string(ev.code);
        return "lock " + lock + (ev.value == 1 ? " on" : ev.value == 0 ? " off" : " " + std::to_string(ev.value));
    }
    case EV_PRIV_CURSOR_SHOW:
        return ev.code <= 1 ? (ev.code == 1 ? "cursor show" : "cursor hide") : "cursor-show code " + std::to_string(ev.code);
    default:
        break;
    }
    if (std::string_view(private_kind(ev.type)) == "locked-touch") {
        tactord::input_event real = ev;
        real.type = static_cast<uint16_t>(ev.type - EV_PRIV_LOCKED_TOUCH_BASE);
        return "locked touch " + standard_text(real);
    }
    return standard_text(ev);
}

std::string event_json(const tactord::input_event& ev)
{
    const std::string kind = private_kind(ev.type);
    std::string out = "{\"record\":\"" + (kind.empty() ? std::string("event") : kind) + "\"";
    out += field("sec", ev.tv_sec) + field("usec", ev.tv_usec);
    out += field("type", ev.type) + field("code", ev.code) + field("value", ev.value);
    uint16_t named_type = ev.type;
    if (kind == "locked-touch")
        named_type = static_cast<uint16_t>(ev.type - EV_PRIV_LOCKED_TOUCH_BASE);
    if (kind.empty() || kind == "locked-touch") {
        if (const char* t = event_type_name(named_type))
            out += field("type_name", std::string(t));
        if (const char* c = event_code_name(named_type, ev.code))
            out += field("code_name", std::string(c));
    }
    return out + field("text", describe_event(ev)) + "}";
}

std::string describe_reply(const SystemMsg& msg)
{
    const char* name = msg_type_name(msg.type);
    return std::string("reply ") + (name != nullptr ? name : "type " + std::to_string(msg.type)) + ": " +
           reply_payload(msg);
}

std::string reply_json(const SystemMsg& msg)
{
    const char* name = msg_type_name(msg.type);
    std::string out = "{\"record\":\"reply\"" + field("type", msg.type) + field("scr_index", msg.scr_index);
    if (name != nullptr)
        out += field("type_name", std::string(name));
    if (msg.type == TYPE_MODE_GET)
        out += field("mode", msg.data.nValue) + field("mode_name", mode_name(msg.data.nValue));
    return out + field("text", reply_payload(msg)) + "}";
}

}  // namespace tools
