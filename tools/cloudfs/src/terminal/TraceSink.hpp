// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace cloudfs {

/// The severities that a trace shows unless told otherwise: arguments, caught exceptions, entry and exit.
inline constexpr std::uint32_t kDefaultTraceMask = 0x72;

/// Write the provider's diagnostic records of the severities in mask to standard error from now on, one a
/// line, nested by indentation.
void startTrace(std::uint32_t mask);

}  // namespace cloudfs
