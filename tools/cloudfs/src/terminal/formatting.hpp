// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <string>

namespace cloudfs {

/// "512 B", "1.5 MiB": at most one digit after the point, units of 1024.
std::string formatSize(std::uint64_t bytes);

/// How a size is written: all of its bytes, or short as "512", "1.5K", "20M", rounded up, as ls -h does.
enum class SizeStyle { Bytes, Short };

/// "1536", "1.5K".
std::string formatSize(std::uint64_t bytes, SizeStyle style);

/// "0:07", "1:02:03".
std::string formatDuration(double seconds);

/// "2024-05-31T12:00:00Z", in UTC and whole seconds; "-" when there is no time.
std::string formatTime(const boost::posix_time::ptime& time);

}  // namespace cloudfs
