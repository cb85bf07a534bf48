// Reading command-line words: whole numbers within bounds and comma lists.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// A decimal (or 0x hexadecimal) integer within [lo, hi], the whole word.
std::optional<long long> parse_integer(std::string_view text, long long lo, long long hi);
// "a,b,c": exactly n integers within [lo, hi].
std::optional<std::vector<long long>> parse_list(std::string_view text, std::size_t n, long long lo, long long hi);
// Seconds as a decimal fraction ("2", "0.5"), 0..max.
std::optional<double> parse_seconds(std::string_view text, double max);

}  // namespace tools
