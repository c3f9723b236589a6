// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

namespace foundation {

/// Whether the calling thread runs inside the host's main execution context, the one a user may interrupt.
/// False for every thread that has not said otherwise.
FOUNDATION_HOST_EXPORT bool isMainExecutionContext() noexcept;

/// Say whether the calling thread belongs to the main execution context. Other threads are not affected.
FOUNDATION_HOST_EXPORT void setMainExecutionContext(bool active) noexcept;

}  // namespace foundation
