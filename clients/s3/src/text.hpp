// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace storage::cloudprovider::s3 {

/// ASCII letters in lower case, other bytes as they are; whatever the locale.
std::string toLower(std::string_view text);

/// Without the blanks and tabs, and line ends, at both ends.
std::string_view trim(std::string_view text);

/// Whether a text is valid UTF-8.
bool isUtf8(std::string_view text);

/// A decimal number; nothing when it is none, or too large.
std::optional<std::uint64_t> toNumber(std::string_view text);

/// An ETag without its quotes; empty for a weak one, which names no bytes.
std::string toVersion(std::string_view etag);

/// Encode each byte that RFC 3986 does not call unreserved, as signatures want it; "/" stays if told so.
enum class Slash : std::uint8_t { Encode, Keep };
std::string percentEncode(std::string_view text, Slash slash);

/// Undo the encoding of a listing, where "+" may stand for a blank. What is no encoding stays as it is.
std::string percentDecode(std::string_view text);

/// Read the time of a header (RFC 7231) or of an answer in XML (ISO 8601), in UTC; not_a_date_time when it is none.
boost::posix_time::ptime toTime(const std::string& text);

}  // namespace storage::cloudprovider::s3
