// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

namespace storage::cloudprovider {

/// Throw OperationInterrupted when an interrupt is pending and the caller runs in the host's main execution context:
/// what other threads do is not what the user interrupted.
inline void throwIfInterrupted() {
    if (foundation::isMainExecutionContext()) {
        foundation::utInterruptState::ThrowIfInterruptPending();
    }
}

}  // namespace storage::cloudprovider
