// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <random>

namespace cloudfs {

class LocalSource;
class ProgressBar;

}  // namespace cloudfs

namespace cloudfs::commands {

/// An edit of a file of the store that begins again when the file, or the store, turns out to be in use: another writer
/// replaced the file meanwhile, so that the store refused the edit, or kept the store busy. In between it waits, for
/// longer and longer random times, so that writers who met do not meet again and again.
class RepeatedEdit {
public:
    /// Reads the source, makes the whole edit and stores it, or throws and stores nothing.
    using Attempt = std::function<void(ProgressBar& progress)>;

    static constexpr std::chrono::milliseconds kLimit = std::chrono::minutes(1);

    /// Values   source: opened for repeated reading, and outlives this. limit: how long after its first failure the
    ///          edit may still begin again.
    explicit RepeatedEdit(LocalSource& source, std::chrono::milliseconds limit = kLimit);

    /// Make the edit, as often as it takes; each attempt reads the source from its beginning and has a progress bar of
    /// its own.
    ///
    /// Errors   what the last attempt threw; OperationInterrupted, at once also while it waits.
    void run(const Attempt& attempt);

private:
    using Clock = std::chrono::steady_clock;

    bool succeeds(const Attempt& attempt);
    bool isOver();
    void pause();

    LocalSource& m_source;
    const std::chrono::milliseconds m_limit;
    std::optional<Clock::time_point> m_deadline;  // from the first failure on
    std::chrono::microseconds m_longestPause;
    std::minstd_rand m_random{std::random_device{}()};
};

}  // namespace cloudfs::commands
