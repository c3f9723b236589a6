// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace storage::cloudprovider::s3 {

/// How often and when to try again: waits are random up to a bound, which doubles ("full jitter"), so that those who
/// failed together do not come back together.
struct RetryPolicy {
    unsigned MostTries = 10;
    std::chrono::milliseconds FirstBound{100};
    std::chrono::milliseconds LongestWait{30'000};

    /// Wait for the next try.
    ///
    /// Values   tries: so many were made, at least 1.
    /// Result   false, without a wait, when there were enough.
    /// Errors   OperationInterrupted, in at most 100 ms.
    bool waitAfter(unsigned tries) const;
};

}  // namespace storage::cloudprovider::s3
