// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <stdexcept>
#include <string>
#include <string_view>

namespace foundation {

/// Thrown when a text is not valid in the encoding it claims to have.
class FOUNDATION_HOST_EXPORT InvalidTextError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

/// Convert UTF-8 to UTF-16; lossless for valid text. Throws InvalidTextError for anything else.
/// Threads: any, as for every function here.
FOUNDATION_HOST_EXPORT std::u16string toUtf16(std::string_view utf8);

/// Convert UTF-16 to UTF-8; lossless for valid text. Throws InvalidTextError for an unpaired surrogate.
FOUNDATION_HOST_EXPORT std::string toUtf8(std::u16string_view utf16);

/// Convert for display: each malformed byte becomes U+FFFD. Never throws for the text's content.
FOUNDATION_HOST_EXPORT std::u16string toUtf16Lossy(std::string_view utf8);

/// Convert for display: each unpaired surrogate becomes U+FFFD. Never throws for the text's content.
FOUNDATION_HOST_EXPORT std::string toUtf8Lossy(std::u16string_view utf16);

}  // namespace foundation
