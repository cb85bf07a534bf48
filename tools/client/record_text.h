// What a display client receives, in words: the 16-byte event records
// (standard events by name, the daemon's private records by meaning) and the
// 64-byte replies of the control socket, as text or as one JSON object.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "common/system_msg.h"
#include "common/tactord_types.h"

namespace tools {

// "EV_KEY KEY_A press", "focus gained", "lock Caps on",
// "locked touch EV_KEY BTN_TOUCH press".
std::string describe_event(const tactord::input_event& ev);
// {"record":"event","type":1,"type_name":"EV_KEY",...,"text":"..."}
std::string event_json(const tactord::input_event& ev);

// "reply TYPE_MODE_GET: extern ipc-window".
std::string describe_reply(const SystemMsg& msg);
std::string reply_json(const SystemMsg& msg);

// The mode bits by name: "clone", "extern ipc-window", "double-player
// ipc-extern"; "none" for 0, unknown bits as "0x..".
std::string mode_name(int mode);
// "clone", "extern", "double-player" and "ipc-extern" to their bits.
std::optional<int> parse_mode_word(std::string_view word);

// The name of a message type ("TYPE_MODE_GET"), null beyond the 25 types.
const char* msg_type_name(int32_t type);
// text with quotes, backslashes and control characters escaped for a JSON string.
std::string json_escape(std::string_view text);
// A text field of a reply: at most len characters, stopping at a NUL.
std::string bounded_text(const char* text, std::size_t len);

}  // namespace tools
