// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/services/InterruptScope.hpp>

#include <chrono>

namespace storage::cloudprovider::s3 {

/// How often waiting looks at interrupts.
inline constexpr std::chrono::milliseconds kInterruptInterval(100);

using foundation::throwIfInterrupted;

}  // namespace storage::cloudprovider::s3
