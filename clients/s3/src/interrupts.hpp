// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

#include <chrono>

namespace storage::cloudprovider::s3 {

/// How often waiting looks at the host's interrupt.
inline constexpr std::chrono::milliseconds kInterruptInterval(100);

/// Throw OperationInterrupted when an interrupt is pending and the calling thread works for the host's main execution
/// context, the only one that a user interrupts.
inline void throwIfInterrupted() {
    if (foundation::isMainExecutionContext()) {
        foundation::utInterruptState::ThrowIfInterruptPending();
    }
}

}  // namespace storage::cloudprovider::s3
