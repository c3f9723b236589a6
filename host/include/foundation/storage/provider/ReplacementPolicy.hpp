// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace foundation::storage::provider {

/// What copying and moving do when the destination exists.
enum class ReplacementPolicy : std::uint32_t { Fail = 0, Replace = 1 };

}  // namespace foundation::storage::provider
