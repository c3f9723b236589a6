// SPDX-License-Identifier: Apache-2.0
#include "context/TransferPool.hpp"

#include "support/Trace.hpp"
#include "support/translateException.hpp"

#include <algorithm>
#include <cassert>
#include <utility>

namespace storage::cloudprovider {

TransferPool::TransferPool(std::size_t mostThreads) : m_mostThreads(std::max<std::size_t>(mostThreads, 1)) {}

TransferPool::~TransferPool() {
    std::deque<Request> dropped;  // let go outside the lock
    {
        const foundation::MutexLock lock(m_mutex);
        m_isEnding = true;
        dropped.swap(m_requests);
        m_changed.notifyAll();
    }
    for (auto& thread : m_threads) {
        assert(thread.get_id() != std::this_thread::get_id() && "no transfer owns the pool");
        thread.join();
    }
}

void TransferPool::request(const std::shared_ptr<TransferSource>& source, std::size_t count) noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    try {
        const foundation::MutexLock lock(m_mutex);
        addRequestLocked(source, count);
    } catch (...) {
        traceCaughtException();
    }
}

void TransferPool::addRequestLocked(const std::shared_ptr<TransferSource>& source, std::size_t count) {
    const auto known = std::find_if(m_requests.begin(), m_requests.end(),
                                    [&](const Request& request) { return request.source == source; });
    if (known != m_requests.end()) {
        known->count += count;
    } else {
        m_requests.push_back({source, count});
    }
    m_requested += count;
    m_changed.notifyAll();
    m_threads.reserve(m_mostThreads);
    while (m_idle < m_requested && m_threads.size() < m_mostThreads) {
        m_threads.emplace_back([this] { work(); });
        ++m_idle;  // in advance: it waits for its first request
    }
}

void TransferPool::work() {
    foundation::MutexLock lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return m_isEnding || !m_requests.empty(); });
        if (m_isEnding) {
            return;
        }
        auto request = std::move(m_requests.front());
        m_requests.pop_front();
        --m_requested;
        --m_idle;
        auto source = request.source;
        if (--request.count != 0) {
            m_requests.push_back(std::move(request));  // the room of the one taken out: it cannot fail
        }
        lock.unlock();
        const auto more = source->transferOne();
        lock.lock();
        ++m_idle;
        if (more != 0 && !m_isEnding) {
            try {
                addRequestLocked(source, more);
            } catch (...) {
                traceCaughtException();
            }
        }
        lock.unlock();
        source.reset();  // it may be the last owner
        lock.lock();
    }
}

}  // namespace storage::cloudprovider
