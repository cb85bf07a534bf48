// tactorctl config check FILE: the seat configuration read by the daemon's
// own parser, printed as the seat and screen map it yields, or the line it
// stops at. Before the parser runs, a strict reading refuses what the parser
// lets pass but no integrator means (unknown sections, seats that are not
// numbers, a screen given twice, a binary or empty file); after it, warnings
// about rows that can never match and seats bound to no screen.
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>

#include "common/multi_config.h"
#include "common/multi_config_internal.h"
#include "client/args.h"
#include "tactorctl/ctl.h"
#include "tactorctl/devices.h"

namespace tools {
namespace {

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

// Reads lines as the daemon's parser does (trimmed, "#" first is a
// comment, key and value split at the first blanks) and collects every
// error as "LINE: text".
class StrictReader {
public:
    std::vector<std::pair<int, std::string>> errors;

    void read(const std::string& text)
    {
        std::istringstream in(text);
        std::string line;
        int number = 0;
        while (std::getline(in, line)) {
            ++number;
            if (line.size() > CONFIG_LINE_BUF - 2)
                error(number, "longer than " + std::to_string(CONFIG_LINE_BUF - 2) +
                                  " characters: tactord reads the rest as another line");
            take(number, trimmed(line));
        }
        if (section_ != 0)
            error(section_, "this section has no EndSection before the end of the file");
        if (sections_ == 0)
            error(std::max(number, 1), "no section at all: every device would be a non-USB input of screen 0");
    }

private:
    static std::string trimmed(const std::string& line)
    {
        const std::size_t b = line.find_first_not_of(" \t");
        const std::size_t e = line.find_last_not_of(" \t\r\n");
        return b == std::string::npos || e == std::string::npos ? std::string() : line.substr(b, e - b + 1);
    }

    void error(int line, const std::string& text) { errors.emplace_back(line, text); }

    // A number the section needs, within [lo, hi].
    std::optional<long long> number(int line, const std::string& what, const std::string& value, long long lo,
                                    long long hi)
    {
        const auto n = parse_integer(value, lo, hi);
        if (!n)
            error(line, what + " '" + value + "' is not a number " + std::to_string(lo) + ".." + std::to_string(hi));
        return n;
    }

    void take(int line, const std::string& text)
    {
        if (text.empty() || text[0] == '#')
            return;
        const std::size_t cut = text.find_first_of(" \t");
        const std::string key = text.substr(0, cut);
        const std::string value = cut == std::string::npos ? std::string() : trimmed(text.substr(cut));
        if (section_ == 0) {
            static const std::map<std::string, std::string> kSections = {
                {"\"Terminal\"", "Terminal"}, {"\"Mode\"", "Mode"}, {"\"Input\"", "Input"}, {"\"Output\"", "Output"}};
            const auto kind = kSections.find(value);
            if (key != "StartSection")
                error(line, "'" + text + "' outside any section (tactord skips it)");
            else if (kind == kSections.end())
                error(line, "unknown section " + (value.empty() ? std::string("(none given)") : value) +
                                ": tactord skips it; sections are \"Terminal\", \"Mode\", \"Input\" and \"Output\"");
            if (key == "StartSection")  // an unknown one's body is not judged line by line
                open(line, kind == kSections.end() ? std::string() : kind->second);
            return;
        }
        if (text.find("EndSection") != std::string::npos) {
            close();
            return;
        }
        if (kind_.empty())
            return;
        if (value.empty()) {
            error(line, "'" + text + "' has no value");
            return;
        }
        if (kind_ == "Terminal" && key == "Screen") {
            screen_ = number(line, "screen", value, 0, TERMINAL_MAX - 1);
            screen_line_ = line;
        } else if (kind_ == "Terminal" && key == "InputDevice") {
            number(line, "seat", value, 1, DEVICE_SEAT_MAX);
            if (++count_ == TERMINAL_INPUT_MAX + 1)
                error(line, "more than " + std::to_string(TERMINAL_INPUT_MAX) + " InputDevice lines in one Terminal");
        } else if (kind_ == "Input" || kind_ == "Output") {
            number(line, "seat", value, kind_ == "Input" ? 1 : 0, kind_ == "Input" ? DEVICE_SEAT_MAX : INT32_MAX);
            const int limit = kind_ == "Input" ? DEVICE_SEAT_MAX : OUTPUT_SEAT_MAX;
            if (++(kind_ == "Input" ? inputs_ : outputs_) == limit + 1)
                error(line, "more than " + std::to_string(limit) + " " + kind_ + " rows in the file");
        }
    }

    void open(int line, const std::string& kind)
    {
        section_ = line;
        kind_ = kind;
        screen_.reset();
        screen_line_ = line;
        count_ = 0;
        ++sections_;
    }

    void close()
    {
        if (kind_ == "Terminal") {
            // tactord keeps a Terminal under its Screen value (0 without one):
            // a second one for the same screen silently replaces the first.
            const int screen = static_cast<int>(screen_.value_or(0));
            const auto [it, fresh] = screens_.emplace(screen, screen_line_);
            if (!fresh)
                error(screen_line_, "a second Terminal for screen " + std::to_string(screen) + " (the first is at line " +
                                        std::to_string(it->second) + "): tactord would keep only this one");
        }
        section_ = 0;
    }

    int section_ = 0;  // line of the open section's StartSection, 0 outside
    std::string kind_;
    std::optional<long long> screen_;
    int screen_line_ = 0;
    int count_ = 0;  // InputDevice lines of the open Terminal
    int inputs_ = 0;
    int outputs_ = 0;
    int sections_ = 0;
    std::map<int, int> screens_;  // Terminal screens seen, with their line
};

// The file's text, or an error naming why it is no seat file at all.
std::optional<std::string> read_text(CtlContext& ctx, const std::string& file)
{
    struct stat st {};
    if (stat(file.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        ctx.fail(kExitFailed, file + ": is a directory, not a seat file");
        return std::nullopt;
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        ctx.fail(kExitFailed, "cannot read " + file);
        return std::nullopt;
    }
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (text.empty()) {
        ctx.fail(kExitFailed, file + ":1: the file is empty");
        return std::nullopt;
    }
    // Text is printable, blanks and line ends; anything else is no seat file.
    const auto bad = std::find_if(text.begin(), text.end(), [](char c) {
        const auto u = static_cast<unsigned char>(c);
        return (u < 0x20 && c != '\t' && c != '\n' && c != '\r') || u == 0x7f;
    });
    if (bad != text.end()) {
        const auto line = 1 + std::count(text.begin(), bad, '\n');
        ctx.fail(kExitFailed, file + ":" + std::to_string(line) + ": binary data, not a seat file");
        return std::nullopt;
    }
    return text;
}

int check(CtlContext& ctx, const std::vector<std::string>& args)
{
    if (args.size() != 1)
        return ctx.fail(kExitUsage, "config check takes a file name (see --help)");
    const std::string& file = args[0];
    const auto text = read_text(ctx, file);
    if (!text)
        return kExitFailed;
    StrictReader strict;
    strict.read(*text);
    if (!strict.errors.empty()) {
        for (const auto& [line, why] : strict.errors)
            ctx.fail(kExitFailed, file + ":" + std::to_string(line) + ": " + why);
        return kExitFailed;
    }
    unload_seat_file();
    std::fflush(ctx.out);
    int result = 0;
    {
        const DaemonLogTo to_stderr(STDERR_FILENO);  // the parser's own messages
        result = config_init(file.c_str());
    }
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
    unload_seat_file();
    return status;
}

}  // namespace

void add_config_commands(std::vector<Command>& t)
{
    t.push_back({{"config", "check"}, "FILE",
                 "Reads a seat configuration (port.conf) with tactord's own parser and prints the seat and\n"
                 "screen map it gives. Strict: an empty or binary file, a directory, an unknown section, a\n"
                 "section without EndSection, a seat or screen that is not a number, a line outside any\n"
                 "section and two Terminal sections for one screen are errors (exit 1), each named with its\n"
                 "line on standard error, although tactord itself would skip or accept some of them. Warns\n"
                 "about rows that can never match and seats bound to no screen. Needs no running daemon.",
                 check});
}

}  // namespace tools
