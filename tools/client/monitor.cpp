#include "client/monitor.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "client/record_text.h"

namespace tools {
namespace {

void print_line(std::FILE* out, const std::string& line)
{
    std::fputs(line.c_str(), out);
    std::fputc('\n', out);
    std::fflush(out);
}

}  // namespace

std::string screen_held_hint(int screen)
{
    const std::string n = std::to_string(screen);
    return "nothing has arrived for screen " + n +
           ": tactord gives a screen's records to one display client only and ignores a second registration. "
           "If another client holds screen " + n +
           " (the panel's user interface, another tactord-events, or the simulated panel's own client: "
           "tactord-sim --clients chooses the screens it takes), stop it and start this again.";
}

int run_monitor(ControlConnection& conn, const MonitorOptions& opts, std::FILE* out)
{
    if (!conn.send(make_request(TYPE_INPUT_INIT, opts.screen)) || !conn.send(make_fence()))
        return 1;
    const auto start = std::chrono::steady_clock::now();
    long printed = 0;
    bool event_seen = false;
    while (opts.count < 0 || printed < opts.count) {
        std::chrono::milliseconds wait = 1h;
        if (opts.duration.count() > 0) {
            wait = std::chrono::duration_cast<std::chrono::milliseconds>(start + opts.duration -
                                                                         std::chrono::steady_clock::now());
            if (wait.count() <= 0)
                return 0;
        }
        const auto hint_at = start + opts.hint_after;
        if (!event_seen && opts.hint != nullptr) {
            if (std::chrono::steady_clock::now() >= hint_at) {
                std::fprintf(opts.hint, "%s: %s\n", opts.hint_name, screen_held_hint(opts.screen).c_str());
                std::fflush(opts.hint);
                event_seen = true;  // said once
            } else {
                wait = std::min(wait, std::chrono::duration_cast<std::chrono::milliseconds>(
                                          hint_at - std::chrono::steady_clock::now() + 1ms));
            }
        }
        // Events are 16 bytes and replies 64; only a fence is answered here,
        // and its first eight bytes tell it from an event.
        union {
            SystemMsg reply;
            tactord::input_event ev;
            uint8_t bytes[sizeof(SystemMsg)];
        } rec;
        const auto got = conn.read_exact(rec.bytes, sizeof(tactord::input_event), wait);
        if (got == ControlConnection::Read::closed)
            return 1;
        if (got == ControlConnection::Read::timeout)
            continue;  // the loop's head ends a run whose time is up
        std::string line;
        if (is_fence_reply(rec.bytes)) {
            if (conn.read_exact(rec.bytes + sizeof(tactord::input_event),
                                sizeof(SystemMsg) - sizeof(tactord::input_event), 3s) != ControlConnection::Read::ok)
                return 1;
            line = opts.json ? reply_json(rec.reply) : describe_reply(rec.reply);
        } else if (opts.json) {
            event_seen = true;
            line = event_json(rec.ev);
        } else {
            event_seen = true;
            line = describe_event(rec.ev);
            if (opts.with_time) {
                char stamp[32];
                std::snprintf(stamp, sizeof stamp, "%d.%06d ", rec.ev.tv_sec, rec.ev.tv_usec);
                line = stamp + line;
            }
        }
        print_line(out, line);
        if (std::ferror(out))
            return 1;
        ++printed;
    }
    return 0;
}

}  // namespace tools
