// SPDX-License-Identifier: Apache-2.0
#include "ConnectionPool.hpp"

#include "interrupts.hpp"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace storage::cloudprovider::s3 {

ConnectionPool::Lease::Lease(ConnectionPool& pool, std::unique_ptr<HttpConnection> connection)
    : m_pool(pool), m_connection(std::move(connection)) {}

ConnectionPool::Lease::~Lease() {
    m_pool.giveBack(std::move(m_connection));
}

ConnectionPool::ConnectionPool(HttpSettings settings, std::size_t mostConnections)
    : m_settings(std::move(settings)),
      m_mostConnections(std::max<std::size_t>(mostConnections, 1)),
      m_owner(::getpid()) {
    m_idle.reserve(m_mostConnections);  // so that giving back needs no memory
}

ConnectionPool::Lease ConnectionPool::lease() {
    auto connection = takeIdle();
    if (!connection) {
        try {
            connection = std::make_unique<HttpConnection>(m_settings);
        } catch (...) {
            giveBack(nullptr);
            throw;
        }
    }
    return {*this, std::move(connection)};
}

// Null when a connection has to be made; it is counted already.
std::unique_ptr<HttpConnection> ConnectionPool::takeIdle() {
    foundation::MutexLock lock(m_mutex);
    leaveParent();
    const auto isFree = [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return m_inUse < m_mostConnections; };
    while (!m_isFree.waitFor(lock, kInterruptInterval, isFree)) {
        lock.unlock();
        throwIfInterrupted();
        lock.lock();
    }
    ++m_inUse;
    if (m_idle.empty()) {
        return nullptr;
    }
    auto connection = std::move(m_idle.back());
    m_idle.pop_back();
    return connection;
}

void ConnectionPool::giveBack(std::unique_ptr<HttpConnection> connection) noexcept {
    {
        const foundation::MutexLock lock(m_mutex);
        --m_inUse;
        if (connection) {
            m_idle.push_back(std::move(connection));
        }
    }
    m_isFree.notifyOne();
}

void ConnectionPool::leaveParent() {
    if (m_owner != ::getpid()) {
        for (auto& connection : m_idle) {
            HttpConnection::disown(std::move(connection));
        }
        m_idle.clear();
        m_inUse = 0;  // the parent's threads are not here
        m_owner = ::getpid();
    }
}

}  // namespace storage::cloudprovider::s3
