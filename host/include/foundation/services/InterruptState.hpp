// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <exception>

namespace foundation {

/// What ThrowIfInterruptPending throws. Out of a provider's operation it comes as the host's Exception with the code
/// Unknown and this text.
class FOUNDATION_HOST_EXPORT OperationInterrupted : public std::exception {
public:
    /// The text for people.
    const char* what() const noexcept override;
};

/// The process's one interrupt flag. All operations may be called by any thread; RequestInterrupt may be
/// called by a signal handler, too.
///
/// A provider looks at the flag only in threads that have called setMainExecutionContext(true), see
/// ExecutionContext.hpp. For what any other thread asks of it, a requested interrupt does nothing.
class FOUNDATION_HOST_EXPORT utInterruptState {
public:
    /// Throw OperationInterrupted, in whatever thread, while an interrupt is pending; it stays pending until it is
    /// cleared.
    static void ThrowIfInterruptPending();

    /// Ask operations to stop at their next check: the running ones, and all that begin before the interrupt is
    /// cleared. An operation that never checks goes on to its end.
    static void RequestInterrupt() noexcept;

    /// Forget a pending interrupt; does nothing when none is pending.
    static void ClearInterrupt() noexcept;
};

}  // namespace foundation
