// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace cloudfs {

/// Whether a text is valid UTF-8.
bool isUtf8(std::string_view text);

/// Make a text fit for one line of a terminal: control characters, those that turn the direction of writing, and bytes
/// that are not UTF-8 become backslash escapes as in C (\n, \033), a backslash becomes two; everything else stays.
std::string escapeText(std::string_view text);

/// Make a text a string of JSON, with its quotes. The characters that escapeText escapes are escaped, so that a
/// document can be shown; each byte that is not UTF-8 becomes U+FFFD.
std::string toJsonString(std::string_view text);

}  // namespace cloudfs
