// SPDX-License-Identifier: Apache-2.0
#include "terminal/formatting.hpp"

#include <boost/date_time/posix_time/time_formatters.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <string_view>

namespace cloudfs {

std::string formatSize(std::uint64_t bytes) {
    constexpr std::array kUnits{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr double kStep = 1024;
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= kStep && unit + 1 < kUnits.size()) {
        value /= kStep;
        ++unit;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(unit == 0 ? 0 : 1) << value << ' ' << kUnits.at(unit);
    return text.str();
}

std::string formatSize(std::uint64_t bytes, SizeStyle style) {
    constexpr std::string_view kUnits = "KMGTPE";
    constexpr double kStep = 1024;
    constexpr unsigned int kTen = 10;
    auto value = static_cast<double>(bytes) / kStep;
    if (style == SizeStyle::Bytes || value < 1) {
        return std::to_string(bytes);
    }
    std::size_t unit = 0;
    while (std::ceil(value) >= kStep) {
        value /= kStep;
        ++unit;
    }
    const auto tenths = static_cast<unsigned int>(std::ceil(value * kTen));
    const auto whole = static_cast<unsigned int>(std::ceil(value));
    return (tenths < kTen * kTen ? std::to_string(tenths / kTen) + '.' + std::to_string(tenths % kTen)
                                 : std::to_string(whole)) +
           kUnits.at(unit);
}

std::string formatDuration(double seconds) {
    constexpr double kLongest = 359999;  // 99:59:59
    constexpr long kSecondsPerMinute = 60;
    constexpr long kMinutesPerHour = 60;
    const auto whole = static_cast<long>(std::clamp(seconds, 0.0, kLongest));
    const auto minutes = whole / kSecondsPerMinute;
    std::ostringstream text;
    text << std::setfill('0');
    if (minutes >= kMinutesPerHour) {
        text << minutes / kMinutesPerHour << ':' << std::setw(2);
    }
    text << minutes % kMinutesPerHour << ':' << std::setw(2) << whole % kSecondsPerMinute;
    return text.str();
}

std::string formatTime(const boost::posix_time::ptime& time) {
    if (time.is_special()) {
        return "-";
    }
    const auto sinceMidnight = boost::posix_time::seconds(time.time_of_day().total_seconds());
    return boost::posix_time::to_iso_extended_string(boost::posix_time::ptime(time.date(), sinceMidnight)) + "Z";
}

}  // namespace cloudfs
