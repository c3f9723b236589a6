// SPDX-License-Identifier: Apache-2.0
#include "ConnectionPool.hpp"

#include <utility>

namespace storage::cloudprovider::sqlite {

namespace {

// Each idle connection may hold a page cache, which Connection keeps small.
constexpr std::size_t kMostIdle = 8;

}  // namespace

ConnectionPool::Lease::Lease(ConnectionPool& pool, std::unique_ptr<Connection> connection)
    : m_pool(pool), m_connection(std::move(connection)) {}

ConnectionPool::Lease::~Lease() {
    m_pool.giveBack(std::move(m_connection));
}

ConnectionPool::ConnectionPool(std::chrono::milliseconds busyTimeout, std::unique_ptr<Connection> first)
    : m_file(first->file()), m_access(first->access()), m_busyTimeout(busyTimeout) {
    m_idle.reserve(kMostIdle);  // so that giving back needs no memory
    m_idle.push_back(std::move(first));
}

ConnectionPool::Lease ConnectionPool::lease() {
    std::unique_ptr<Connection> connection = takeIdle();
    if (!connection) {
        connection = std::make_unique<Connection>(m_file, m_access, m_busyTimeout);
    }
    return {*this, std::move(connection)};
}

std::unique_ptr<Connection> ConnectionPool::takeIdle() {
    const foundation::MutexLock lock(m_mutex);
    if (m_idle.empty()) {
        return nullptr;
    }
    std::unique_ptr<Connection> connection = std::move(m_idle.back());
    m_idle.pop_back();
    return connection;
}

void ConnectionPool::giveBack(std::unique_ptr<Connection> connection) noexcept {
    // A transaction that could not be rolled back must not reach the next operation: such a connection goes.
    if (!connection->isIdle()) {
        return;
    }
    const foundation::MutexLock lock(m_mutex);
    if (m_idle.size() < kMostIdle) {
        m_idle.push_back(std::move(connection));
    }
}

}  // namespace storage::cloudprovider::sqlite
