#include "client/args.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace tools {

std::optional<long long> parse_integer(std::string_view text, long long lo, long long hi)
{
    bool negative = false;
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
        negative = text[0] == '-';
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
        base = 16;
    }
    unsigned long long magnitude = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (text.empty() || ec != std::errc() || end != text.data() + text.size() ||
        magnitude > static_cast<unsigned long long>(INT64_MAX))
        return std::nullopt;
    const long long value = negative ? -static_cast<long long>(magnitude) : static_cast<long long>(magnitude);
    if (value < lo || value > hi)
        return std::nullopt;
    return value;
}

std::optional<std::vector<long long>> parse_list(std::string_view text, std::size_t n, long long lo, long long hi)
{
    std::vector<long long> out;
    for (;;) {
        const std::size_t comma = text.find(',');
        const auto value = parse_integer(text.substr(0, comma), lo, hi);
        if (!value || out.size() == n)
            return std::nullopt;
        out.push_back(*value);
        if (comma == std::string_view::npos)
            break;
        text.remove_prefix(comma + 1);
    }
    if (out.size() != n)
        return std::nullopt;
    return out;
}

std::optional<double> parse_seconds(std::string_view text, double max)
{
    const std::string copy(text);
    char* end = nullptr;
    const double value = std::strtod(copy.c_str(), &end);
    if (copy.empty() || end != copy.c_str() + copy.size() || !std::isfinite(value) || value < 0 || value > max)
        return std::nullopt;
    return value;
}

}  // namespace tools
