// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace storage::cloudprovider {

/// Who has transfers that a pool's threads may make.
class TransferSource {
public:
    virtual ~TransferSource() = default;

    /// Make one transfer, if there is still one to make. Result: how many more the pool shall ask for. A thread of the
    /// pool must not ask the pool itself: it might become its last owner.
    virtual std::size_t transferOne() noexcept = 0;

protected:
    TransferSource() = default;
    TransferSource(const TransferSource&) = default;
    TransferSource& operator=(const TransferSource&) = default;
};

/// The threads that transfer for a provider's files: started as they are needed, joined at the end. Threads: any.
class TransferPool {
public:
    /// At most so many threads, at least one.
    explicit TransferPool(std::size_t mostThreads);
    TransferPool(const TransferPool&) = delete;
    TransferPool& operator=(const TransferPool&) = delete;

    /// Waits for the transfers that run; those that were asked for and have not begun are dropped. Not to be run by one
    /// of its own threads: a source must not own the pool.
    ~TransferPool();

    std::size_t mostThreads() const noexcept { return m_mostThreads; }

    /// Have a thread call source's transferOne, that many times. Sources take turns. When no thread can be had, or
    /// memory, that is no failure: nobody may count on the pool alone.
    void request(const std::shared_ptr<TransferSource>& source, std::size_t count = 1) noexcept;

private:
    struct Request {
        std::shared_ptr<TransferSource> source;
        std::size_t count;
    };

    void addRequestLocked(const std::shared_ptr<TransferSource>& source, std::size_t count);
    void work();

    const std::size_t m_mostThreads;

    std::mutex m_mutex;  // guards what follows; a leaf
    std::condition_variable m_changed;
    std::deque<Request> m_requests;  // the next to be served in front
    std::size_t m_requested = 0;     // sum of the counts
    std::size_t m_idle = 0;          // threads that wait
    bool m_isEnding = false;
    std::vector<std::thread> m_threads;
};

}  // namespace storage::cloudprovider
