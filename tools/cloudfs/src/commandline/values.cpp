// SPDX-License-Identifier: Apache-2.0
#include "commandline/values.hpp"

#include "terminal/failures.hpp"

#include <charconv>
#include <cstdlib>
#include <limits>
#include <optional>
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

constexpr std::uint64_t kLeastPartSize = 64 * 1024;
constexpr std::uint64_t kMostBytes = std::numeric_limits<std::int64_t>::max();

// Digits, and nothing else.
std::optional<std::uint64_t> toCount(std::string_view text) {
    std::uint64_t number = 0;
    const auto* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    return text.empty() || error != std::errc() || at != end ? std::nullopt : std::optional<std::uint64_t>(number);
}

// Empty when it is not set, which is the same to the provider.
std::string valueOf(const char* variable) {
    const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): no threads yet
    return value == nullptr ? "" : value;
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

std::uint64_t parseSize(std::string_view text) {
    constexpr std::string_view kUnits = "KMG";
    constexpr unsigned int kBitsOfUnit = 10;
    const auto unit = text.empty() ? std::string_view::npos : kUnits.find(text.back());
    const auto shift = unit == std::string_view::npos ? 0 : kBitsOfUnit * static_cast<unsigned int>(unit + 1);
    const auto digits = shift == 0 ? text : text.substr(0, text.size() - 1);
    const auto number = toCount(digits);
    if (!number || *number > (kMostBytes >> shift)) {
        throw UsageError("a size is a number of bytes, or one with K, M or G, such as 8M, not: " + std::string(text));
    }
    return *number << shift;
}

std::uint64_t parsePartSize(std::string_view text) {
    const auto size = parseSize(text);
    if (size < kLeastPartSize) {
        throw UsageError("a part has at least 64K, not: " + std::string(text));
    }
    return size;
}

void checkPartSizeVariable() {
    constexpr const char* kName = "VX_CLOUD_PART_SIZE_OVERRIDE";
    const auto value = valueOf(kName);
    const auto number = toCount(value);
    if (!value.empty() && (!number || (*number != 0 && *number < kLeastPartSize) || *number > kMostBytes)) {
        throw UsageError(kName + (" is a number of bytes without a unit, of at least 65536, not: " + value));
    }
}

void checkCacheSizeVariable() {
    constexpr const char* kName = "VX_CLOUD_DOWNLOADED_PART_CACHE_OVERRIDE";
    const auto value = valueOf(kName);
    if (!value.empty() && !toCount(value)) {
        throw UsageError(kName + (" is a number of bytes without a unit, not: " + value));
    }
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
