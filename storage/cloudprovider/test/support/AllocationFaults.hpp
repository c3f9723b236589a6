// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace storage::cloudprovider::test {

/// Lets an allocation fail as if memory had run out. Programs that link it allocate through its operator new. Each
/// thread for itself.
///
/// A sweep fails the first allocation of a scenario, then the second, and so on, until a run has met no failure.
class AllocationFaults {
public:
    /// Let the nth allocation of this thread from now on (1 is the next) fail, once.
    static void failNth(std::size_t nth) noexcept;

    /// Fail none any more, and forget that one failed.
    static void reset() noexcept;

    /// Whether an allocation of this thread has failed since the last reset.
    static bool hasFailed() noexcept;
};

}  // namespace storage::cloudprovider::test
