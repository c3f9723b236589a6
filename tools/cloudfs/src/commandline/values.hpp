// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

/// Reads the values of options. Errors, for all functions here: UsageError.
namespace cloudfs {

/// A trace mask, decimal or hexadecimal, such as "0x72".
std::uint32_t parseMask(std::string_view text);

/// A count of bytes.
std::int64_t parseOffset(std::string_view text);

/// A number of seconds, minutes, hours or days, such as "1d".
std::chrono::seconds parseAge(const std::string& text);

}  // namespace cloudfs
