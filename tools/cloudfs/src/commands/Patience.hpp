// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/storage/provider/Exception.hpp>

#include <chrono>
#include <optional>
#include <random>

namespace cloudfs::commands {

/// Lets what met somebody else, a file that was replaced meanwhile or a store that was kept busy, begin again. In
/// between it waits, for longer and longer random times, so that those who met do not meet again and again. One thread.
class Patience {
public:
    static constexpr std::chrono::milliseconds kLimit = std::chrono::minutes(1);

    /// Values   limit: how long after the first failure it may still begin again.
    explicit Patience(std::chrono::milliseconds limit = kLimit);

    /// Run an attempt until it does not fail with ErrorCode::InUse. Failures of this machine's files have no code:
    /// another user of the store has no part in them.
    ///
    /// Errors   what the last attempt threw; OperationInterrupted, at once also while it waits.
    template <typename Attempt>
    void run(const Attempt& attempt) {
        while (true) {
            try {
                attempt();
                return;
            } catch (const foundation::storage::provider::ErrorCoded& failure) {
                if (!mayBeginAgain(failure)) {
                    throw;
                }
            }
            pause();
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    bool mayBeginAgain(const foundation::storage::provider::ErrorCoded& failure);
    void pause();

    const std::chrono::milliseconds m_limit;
    std::optional<Clock::time_point> m_deadline;  // from the first failure on
    std::chrono::microseconds m_longestPause;
    std::minstd_rand m_random{std::random_device{}()};
};

}  // namespace cloudfs::commands
