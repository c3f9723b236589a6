// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HttpConnection.hpp"

#include <foundation/threads/Mutex.hpp>

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace storage::cloudprovider::s3 {

/// The connections of a client, at most so many. After a fork the child makes its own. Threads: any.
class ConnectionPool {
public:
    /// A connection for the time of one request, with all its tries; goes back to the pool afterwards.
    class Lease {
    public:
        Lease(ConnectionPool& pool, std::unique_ptr<HttpConnection> connection);
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        ~Lease();

        HttpConnection* operator->() const noexcept { return m_connection.get(); }

    private:
        ConnectionPool& m_pool;
        std::unique_ptr<HttpConnection> m_connection;
    };

    ConnectionPool(HttpSettings settings, std::size_t mostConnections);

    /// Take a connection; wait for one while all are in use. Throws OperationInterrupted when the wait is interrupted.
    Lease lease();

private:
    std::unique_ptr<HttpConnection> takeIdle();
    void giveBack(std::unique_ptr<HttpConnection> connection) noexcept;
    void leaveParent() CLOUDPROVIDER_REQUIRES(m_mutex);

    // Set by the constructor, never changed.
    const HttpSettings m_settings;
    const std::size_t m_mostConnections;

    foundation::Mutex m_mutex;
    foundation::ConditionVariable m_isFree;  // tells of each connection that comes back
    std::vector<std::unique_ptr<HttpConnection>> m_idle CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::size_t m_inUse CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    pid_t m_owner CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider::s3
