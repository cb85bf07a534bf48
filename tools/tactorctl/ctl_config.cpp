// tactorctl config check FILE: the seat configuration read by the daemon's
// own parser, printed as the seat and screen map it yields, or the line it
// stops at; plus what an integrator would want to know beyond the parser's
// verdict (rows that can never match, seats bound to no screen).
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>

#include "common/log.h"
#include "common/multi_config.h"
#include "common/multi_config_internal.h"
#include "tactorctl/ctl.h"

namespace tools {
namespace {

template <std::size_t N>
void clear_rows(std::array<_device_seat, N>& table)
{
    for (auto& row : table) {
        std::free(row.syspath);
        row = {};
    }
}

// The parser's tables are process-wide: empty them before and after a check.
void clear_tables()
{
    clear_rows(device_seats);
    clear_rows(output_seats);
    terminals = {};
}

std::string quoted(const char* text)
{
    return std::string("\"") + text + "\"";
}

void print_map(CtlContext& ctx)
{
    // Which screen lists each seat, as the registry asks.
    std::map<int, int> screen_of;
    for (int t = TERMINAL_MAX - 1; t >= 0; --t)
        for (int i = 0; i < terminals[t].inputCount && i < TERMINAL_INPUT_MAX; ++i)
            screen_of[terminals[t].input[i]] = t;

    std::vector<std::string> warnings;
    ctx.say("seats (Input rows, tried in this order; the first prefix that matches wins):");
    int rows = 0;
    for (int r = 0; r < DEVICE_SEAT_MAX && device_seats[r].syspath != nullptr; ++r, ++rows) {
        const _device_seat& row = device_seats[r];
        const auto screen = screen_of.find(row.seat);
        char line[200];
        std::snprintf(line, sizeof line, "  seat %-3d %-28s screen %d%s", row.seat, row.syspath,
                      screen != screen_of.end() ? screen->second : 0,
                      row.seat == 5 ? "  (the main touchscreen's seat)" : "");
        ctx.say(line);
        if (row.seat <= 0)
            warnings.push_back("row " + std::to_string(r + 1) + " " + quoted(row.syspath) +
                               ": seat numbers below 1 are never matched");
        if (screen == screen_of.end())
            warnings.push_back("seat " + std::to_string(row.seat) + " is listed by no Terminal: its devices go to screen 0");
        for (int e = 0; e < r; ++e) {
            const char* earlier = device_seats[e].syspath;
            if (std::strncmp(earlier, row.syspath, std::strlen(earlier)) == 0)
                warnings.push_back("row " + std::to_string(r + 1) + " " + quoted(row.syspath) +
                                   " is never matched: row " + std::to_string(e + 1) + " " + quoted(earlier) +
                                   " comes first and is a prefix of it (put longer prefixes first)");
        }
    }
    if (rows == 0)
        ctx.say("  none: every device is a non-USB input of screen 0");
    ctx.say("screens (Terminal sections):");
    std::set<int> with_rows;
    for (int r = 0; r < rows; ++r)
        with_rows.insert(device_seats[r].seat);
    for (int t = 0; t < TERMINAL_MAX; ++t) {
        std::string seats;
        for (int i = 0; i < terminals[t].inputCount && i < TERMINAL_INPUT_MAX; ++i) {
            const int seat = terminals[t].input[i];
            seats += ' ';
            seats += std::to_string(seat);
            if (with_rows.count(seat) == 0)
                warnings.push_back("seat " + std::to_string(seat) + " of screen " + std::to_string(t) +
                                   " has no Input row: no device lands on it");
        }
        ctx.say("  screen " + std::to_string(t) + ":" + (seats.empty() ? " no seats" : " seats" + seats));
    }
    for (int r = 0; r < OUTPUT_SEAT_MAX && output_seats[r].syspath != nullptr; ++r)
        ctx.say("output " + quoted(output_seats[r].syspath) + " seat " + std::to_string(output_seats[r].seat) +
                " (kept, not used by tactord)");
    ctx.say("devices on no configured port are non-USB inputs of screen 0");
    for (const std::string& w : warnings)
        ctx.say("warning: " + w);
}

int check(CtlContext& ctx, const std::vector<std::string>& args)
{
    if (args.size() != 1)
        return ctx.fail(kExitUsage, "config check takes a file name (see --help)");
    const std::string& file = args[0];
    if (!std::ifstream(file))
        return ctx.fail(kExitFailed, "cannot read " + file);
    clear_tables();
    // The parser's own messages (unsupported sections, lines without a
    // value) go to standard output, errors only.
    std::fflush(ctx.out);
    set_log_level(LEVEL_ERROR);
    set_log_to_stdout(LOG_PLACE_STDOUT);
    const int result = config_init(file.c_str());
    std::fflush(stdout);
    int status = kExitOk;
    if (result != 0) {
        const config_stop_s& stop = config_last_stop();
        const std::string text(stop.text.data(), strnlen(stop.text.data(), stop.text.size()));
        if (stop.at_end)
            status = ctx.fail(kExitFailed, file + ":" + std::to_string(stop.section_line) +
                                               ": this section has no EndSection before the end of the file");
        else
            status = ctx.fail(kExitFailed,
                              file + ":" + std::to_string(stop.line) + ": not understood inside the section of line " +
                                  std::to_string(stop.section_line) + ": " + quoted(text.c_str()) +
                                  "\n  (Terminal: Screen 0..2 and at most 15 InputDevice SEAT lines; Input: PREFIX "
                                  "SEAT, at most 15 rows; Output: PREFIX SEAT, at most 3 rows)");
    } else {
        ctx.say(file + ": valid");
        print_map(ctx);
    }
    clear_tables();
    return status;
}

}  // namespace

void add_config_commands(std::vector<Command>& t)
{
    t.push_back({{"config", "check"}, "FILE",
                 "Reads a seat configuration (port.conf) with tactord's own parser and prints the seat and\n"
                 "screen map it gives, or the line where the parser gives up; warns about rows that can\n"
                 "never match and seats bound to no screen. Needs no running daemon.",
                 check});
}

}  // namespace tools
