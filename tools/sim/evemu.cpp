#include "sim/evemu.h"

#include <linux/input.h>

#include <charconv>

namespace emul {
namespace {

// Bytes of the largest bitmap (the keys).
constexpr std::size_t kMaxBitmapBytes = (KEY_MAX + 1) / 8;

std::string_view trim(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
        s.remove_suffix(1);
    return s;
}

// Splits off the next blank-separated word.
std::string_view next_word(std::string_view& s)
{
    s = trim(s);
    std::size_t end = 0;
    while (end < s.size() && s[end] != ' ' && s[end] != '\t')
        ++end;
    const std::string_view word = s.substr(0, end);
    s.remove_prefix(end);
    return word;
}

template <typename T>
bool number(std::string_view word, int base, T& out)
{
    if (word.empty())
        return false;
    if (base == 16 && word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X'))
        word.remove_prefix(2);
    const auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), out, base);
    return ec == std::errc() && end == word.data() + word.size();
}

// "E: 12.000345 0001 001e 1": the time may come without its fraction.
bool event_line(std::string_view rest, RecordedEvent& ev)
{
    const std::string_view time = next_word(rest);
    const std::size_t dot = time.find('.');
    ev.usec = 0;
    if (!number(time.substr(0, dot), 10, ev.sec))
        return false;
    if (dot != std::string_view::npos) {
        const std::string_view frac = time.substr(dot + 1);
        if (frac.empty() || frac.size() > 6 || !number(frac, 10, ev.usec))
            return false;
        for (std::size_t i = frac.size(); i < 6; ++i)
            ev.usec *= 10;  // ".5" is half a second
    }
    if (!number(next_word(rest), 16, ev.type) || !number(next_word(rest), 16, ev.code) ||
        !number(next_word(rest), 10, ev.value))
        return false;
    return trim(rest).empty();
}

bool bits_line(std::string_view rest, std::map<uint16_t, std::vector<uint8_t>>& bits)
{
    uint16_t type = 0;
    if (!number(next_word(rest), 16, type) || type > EV_MAX)
        return false;
    std::vector<uint8_t>& map = bits[type];
    for (std::string_view w = next_word(rest); !w.empty(); w = next_word(rest)) {
        uint8_t byte = 0;
        if (w.size() > 2 || !number(w, 16, byte) || map.size() >= kMaxBitmapBytes)
            return false;
        map.push_back(byte);
    }
    return true;
}

bool axis_line(std::string_view rest, std::vector<RecordedAxis>& axes)
{
    RecordedAxis a{};
    if (!number(next_word(rest), 16, a.code) || a.code > ABS_MAX || !number(next_word(rest), 10, a.minimum) ||
        !number(next_word(rest), 10, a.maximum))
        return false;
    // Fuzz, flat and resolution may be missing in older recordings.
    for (int32_t* field : {&a.fuzz, &a.flat, &a.resolution}) {
        const std::string_view w = next_word(rest);
        if (!w.empty() && !number(w, 10, *field))
            return false;
    }
    if (!trim(rest).empty() || axes.size() > ABS_MAX)
        return false;
    axes.push_back(a);
    return true;
}

std::vector<unsigned> set_bits(const std::map<uint16_t, std::vector<uint8_t>>& bits, uint16_t type)
{
    std::vector<unsigned> out;
    const auto it = bits.find(type);
    if (it == bits.end())
        return out;
    for (std::size_t byte = 0; byte < it->second.size(); ++byte)
        for (unsigned bit = 0; bit < 8; ++bit)
            if ((it->second[byte] >> bit) & 1u)
                out.push_back(static_cast<unsigned>(byte * 8 + bit));
    return out;
}

}  // namespace

bool parse_recording(std::string_view text, Recording& out, std::string& error)
{
    int number_of_line = 0;
    while (!text.empty()) {
        const std::size_t nl = text.find('\n');
        const std::string_view raw = text.substr(0, nl);
        text.remove_prefix(nl == std::string_view::npos ? text.size() : nl + 1);
        ++number_of_line;
        const std::string where = "line " + std::to_string(number_of_line) + ": ";
        if (raw.size() > kRecordingMaxLine) {
            error = where + "longer than " + std::to_string(kRecordingMaxLine) + " characters";
            return false;
        }
        std::string_view line = trim(raw);
        // A comment: a whole line, or what follows an event's values.
        const std::size_t hash = line.find('#');
        if (hash != std::string_view::npos)
            line = trim(line.substr(0, hash));
        if (line.empty())
            continue;
        if (line.size() < 2 || line[1] != ':') {
            error = where + "expected \"E:\" or a header line such as \"N:\"";
            return false;
        }
        const char kind = line[0];
        const std::string_view rest = line.substr(2);
        bool ok = true;
        switch (kind) {
        case 'E': {
            RecordedEvent ev{};
            ok = event_line(rest, ev);
            if (ok && out.events.size() >= kRecordingMaxEvents) {
                error = where + "more than " + std::to_string(kRecordingMaxEvents) + " events";
                return false;
            }
            if (ok)
                out.events.push_back(ev);
            break;
        }
        case 'N':
            // The name runs to the end of the line, a '#' in it included.
            out.name = std::string(trim(raw.substr(raw.find(':') + 1)).substr(0, 255));
            break;
        case 'B':
            ok = bits_line(rest, out.bits);
            break;
        case 'A':
            ok = axis_line(rest, out.axes);
            break;
        default:
            // "I:", "P:", "L:", "S:" and lines of newer versions describe
            // what an emulated device does not need.
            break;
        }
        if (!ok) {
            error = where + "malformed \"" + std::string(1, kind) + ":\" line";
            return false;
        }
    }
    return true;
}

TestDevice Recording::device(const std::string& phys) const
{
    TestDevice d{name, phys, set_bits(bits, 0), set_bits(bits, EV_ABS), set_bits(bits, EV_KEY), set_bits(bits, EV_REL),
                 {}};
    for (const RecordedAxis& a : axes)
        d.axes.push_back({a.code, a.minimum, a.maximum});
    return d;
}

std::vector<std::vector<RecordedEvent>> recording_frames(const std::vector<RecordedEvent>& events)
{
    std::vector<std::vector<RecordedEvent>> frames(1);
    for (const RecordedEvent& ev : events) {
        frames.back().push_back(ev);
        if (ev.type == EV_SYN && ev.code == SYN_REPORT)
            frames.emplace_back();
    }
    if (frames.back().empty())
        frames.pop_back();
    return frames;
}

}  // namespace emul
