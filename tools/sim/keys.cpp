#include "sim/keys.h"

#include <linux/input.h>

#include <cctype>
#include <cstring>

#include "client/input_names.h"

namespace emul {
namespace {

struct Punctuation {
    char c;
    uint16_t code;
};
constexpr Punctuation kPunctuation[] = {
    {' ', KEY_SPACE}, {'-', KEY_MINUS}, {'.', KEY_DOT}, {'/', KEY_SLASH}, {'\n', KEY_ENTER}};

}  // namespace

std::optional<Stroke> stroke_for(char c)
{
    const auto u = static_cast<unsigned char>(c);
    if (std::isalnum(u) != 0) {
        const auto code = tools::parse_code_name("KEY_" + std::string(1, static_cast<char>(std::toupper(u))));
        if (code && code->first == EV_KEY)
            return Stroke{code->second, std::isupper(u) != 0};
        return std::nullopt;
    }
    for (const Punctuation& p : kPunctuation)
        if (p.c == c)
            return Stroke{p.code, false};
    return std::nullopt;
}

std::optional<char> char_for(uint16_t code, bool shift)
{
    for (const Punctuation& p : kPunctuation)
        if (p.code == code)
            return p.c;
    const char* name = tools::event_code_name(EV_KEY, code);
    // "KEY_A" .. "KEY_Z", "KEY_0" .. "KEY_9"
    if (name == nullptr || std::strlen(name) != 5 || std::strncmp(name, "KEY_", 4) != 0 ||
        std::isalnum(static_cast<unsigned char>(name[4])) == 0)
        return std::nullopt;
    const char c = name[4];
    return shift || std::isdigit(static_cast<unsigned char>(c)) != 0
               ? c
               : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

std::optional<std::vector<tactord::input_event>> typing_frames(const std::string& text, char& bad)
{
    std::vector<tactord::input_event> frames;
    const auto frame = [&frames](uint16_t code, int32_t value) {
        frames.push_back({0, 0, EV_KEY, code, value});
        frames.push_back({0, 0, EV_SYN, SYN_REPORT, 0});
    };
    for (const char c : text) {
        const auto s = stroke_for(c);
        if (!s) {
            bad = c;
            return std::nullopt;
        }
        if (s->shift)
            frame(KEY_LEFTSHIFT, 1);
        frame(s->code, 1);
        frame(s->code, 0);
        if (s->shift)
            frame(KEY_LEFTSHIFT, 0);
    }
    return frames;
}

}  // namespace emul
