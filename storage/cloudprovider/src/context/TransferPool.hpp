// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>

#include <cstddef>
#include <deque>
#include <memory>
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

    void addRequestLocked(const std::shared_ptr<TransferSource>& source, std::size_t count)
        CLOUDPROVIDER_REQUIRES(m_mutex);
    void work();

    const std::size_t m_mostThreads;

    foundation::Mutex m_mutex;  // a leaf
    foundation::ConditionVariable m_changed;
    std::deque<Request> m_requests CLOUDPROVIDER_GUARDED_BY(m_mutex);  // the next to be served in front
    std::size_t m_requested CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;     // sum of the counts
    std::size_t m_idle CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;          // threads that wait
    bool m_isEnding CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    std::vector<std::thread> m_threads CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider
