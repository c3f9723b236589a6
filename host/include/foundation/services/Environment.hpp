// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <optional>
#include <string>

namespace foundation {

/// Look up an environment variable of this process.
///
/// Values   name in UTF-16.
/// Result   the value in UTF-16 (malformed bytes shown as U+FFFD), or nothing when it is not set; an empty
///          value is a value.
/// Threads  any, as long as no thread changes the environment meanwhile.
FOUNDATION_HOST_EXPORT std::optional<std::u16string> getEnvironment(const std::u16string& name);

}  // namespace foundation
