// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>

#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace cloudfs {

class ProgressBar;

}  // namespace cloudfs

namespace cloudfs::commands {

/// Does many things with files, several at a time. One that fails does not keep the others from being done: failures
/// are gathered and told in the end. One thread, which the jobs' own are none of.
class FileTransfers {
public:
    /// Values   atOnce: at least 1; 1 does one job after the other on the calling thread.
    explicit FileTransfers(std::size_t atOnce);
    FileTransfers(const FileTransfers&) = delete;
    FileTransfers& operator=(const FileTransfers&) = delete;
    ~FileTransfers() = default;

    /// Note what failed before there was a job for it. Threads: any.
    void addFailure(std::exception_ptr failure);

    /// Run an action on the calling thread, and note what it throws, unless that is an interrupt.
    template <typename Action>
    void attempt(const Action& action) {
        try {
            action();
        } catch (...) {
            addFailureUnlessInterrupted(std::current_exception());
        }
    }

    /// Do job(0) to job(count - 1), and wait for them. Each tells the progress bar that its file is done.
    ///
    /// Errors   OperationInterrupted, when the jobs that were at work have ended; others are not begun then.
    void run(std::size_t count, ProgressBar& progress, const std::function<void(std::size_t)>& job);

    std::size_t failureCount() const;

    /// Tell the failures, a line each, on standard error.
    ///
    /// Errors   a single failure itself, which nothing was told of then; PartFailure for several.
    void finish();

private:
    void addFailureUnlessInterrupted(std::exception_ptr failure);
    void work(const std::function<void(std::size_t)>& job, ProgressBar& progress);
    bool takeJob(std::size_t& index);
    void endAll(std::exception_ptr interrupt);

    const std::size_t m_atOnce;

    mutable foundation::Mutex m_mutex;
    std::vector<std::exception_ptr> m_failures CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::exception_ptr m_interrupt CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::size_t m_next CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    std::size_t m_end CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
};

}  // namespace cloudfs::commands
