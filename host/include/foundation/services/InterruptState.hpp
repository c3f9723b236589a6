// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/export.hpp>

#include <exception>

namespace foundation {

/// Thrown out of an operation that the user interrupted.
class FOUNDATION_HOST_EXPORT OperationInterrupted : public std::exception {
public:
    const char* what() const noexcept override;
};

/// The process's one interrupt flag. All operations may be called by any thread; RequestInterrupt may be
/// called by a signal handler, too.
class FOUNDATION_HOST_EXPORT utInterruptState {
public:
    /// Throw OperationInterrupted while an interrupt is pending; it stays pending until it is cleared.
    static void ThrowIfInterruptPending();

    /// Ask running operations to stop at their next check.
    static void RequestInterrupt() noexcept;

    /// Forget a pending interrupt; does nothing when none is pending.
    static void ClearInterrupt() noexcept;
};

}  // namespace foundation
