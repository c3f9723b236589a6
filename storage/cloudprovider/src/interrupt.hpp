// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/services/ExecutionContext.hpp>
#include <foundation/services/InterruptState.hpp>

#include <chrono>

namespace storage::cloudprovider {

/// How often waiting looks at the host's interrupt.
inline constexpr std::chrono::milliseconds kInterruptInterval(100);

/// Puts a thread of a pool into the execution context of whoever it works for.
class CallersContext {
public:
    explicit CallersContext(bool isMain) noexcept { foundation::setMainExecutionContext(isMain); }
    CallersContext(const CallersContext&) = delete;
    CallersContext& operator=(const CallersContext&) = delete;
    ~CallersContext() { foundation::setMainExecutionContext(false); }
};

/// Throw OperationInterrupted when an interrupt is pending and the caller runs in the host's main execution context:
/// what other threads do is not what the user interrupted.
inline void throwIfInterrupted() {
    if (foundation::isMainExecutionContext()) {
        foundation::utInterruptState::ThrowIfInterruptPending();
    }
}

}  // namespace storage::cloudprovider
