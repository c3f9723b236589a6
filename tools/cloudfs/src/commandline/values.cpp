// SPDX-License-Identifier: Apache-2.0
#include "commandline/values.hpp"

#include "terminal/failures.hpp"

#include <charconv>
#include <system_error>

namespace cloudfs {

namespace {

template <typename Number>
Number parseNumber(std::string_view text, int base, const std::string& what) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number, base);
    if (text.empty() || error != std::errc() || at != end || number < Number{}) {
        throw UsageError(what + ": " + std::string(text));
    }
    return number;
}

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

std::int64_t secondsOf(char unit) {
    switch (unit) {
        case 's':
            return 1;
        case 'm':
            return kMinute;
        case 'h':
            return kHour;
        case 'd':
            return kDay;
        default:
            return 0;
    }
}

}  // namespace

std::uint32_t parseMask(std::string_view text) {
    constexpr int kDecimal = 10;
    constexpr int kHexadecimal = 16;
    const auto beginning = text.substr(0, 2);
    const bool isHexadecimal = beginning == "0x" || beginning == "0X";
    return parseNumber<std::uint32_t>(isHexadecimal ? text.substr(2) : text, isHexadecimal ? kHexadecimal : kDecimal,
                                      "a trace mask is a number of 32 bits, such as 0x72, not");
}

std::int64_t parseOffset(std::string_view text) {
    constexpr int kDecimal = 10;
    return parseNumber<std::int64_t>(text, kDecimal, "an offset is a count of bytes below 2^63, not");
}

std::chrono::seconds parseAge(const std::string& text) {
    constexpr std::int64_t kMost = 100'000;
    std::int64_t number = -1;
    const auto* const end = text.data() + text.size();
    const auto [unit, error] = std::from_chars(text.data(), end, number);
    const auto seconds = unit + 1 == end ? secondsOf(*unit) : 0;
    if (error != std::errc() || number < 0 || number > kMost || seconds == 0) {
        throw UsageError("an age is a number of seconds, minutes, hours or days, such as 1d, not: " + text);
    }
    return std::chrono::seconds(number * seconds);
}

}  // namespace cloudfs
