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

/// A number of bytes, or with K, M or G after it of that power of 1024, such as "8M".
std::uint64_t parseSize(std::string_view text);

/// The size of the parts of a file: as parseSize, at least 64 KiB, as each part costs a file, requests and room in the
/// store's tables.
std::uint64_t parsePartSize(std::string_view text);

/// Refuse an environment variable whose value the provider would read as something else: one that is set is a plain
/// number of bytes.
void checkPartSizeVariable();
void checkCacheSizeVariable();

/// A number of seconds, minutes, hours or days, such as "1d".
std::chrono::seconds parseAge(const std::string& text);

}  // namespace cloudfs
