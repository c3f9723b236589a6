// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <foundation/threads/Mutex.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace storage::cloudprovider::sqlite {

/// The connections of one client: each operation leases one for itself. Threads: any.
class ConnectionPool {
public:
    /// A connection for the time of one operation; goes back to the pool afterwards.
    class Lease {
    public:
        Lease(ConnectionPool& pool, std::unique_ptr<Connection> connection);
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        ~Lease();

        Connection& operator*() const noexcept { return *m_connection; }
        Connection* operator->() const noexcept { return m_connection.get(); }

    private:
        ConnectionPool& m_pool;
        std::unique_ptr<Connection> m_connection;
    };

    /// Values   first: the first to be leased; all others go to its file, wherever the process changes to.
    ConnectionPool(std::chrono::milliseconds busyTimeout, std::unique_ptr<Connection> first);

    /// Whether its connections change nothing.
    bool isReadOnly() const noexcept { return m_access != Access::Change; }

    /// The file's absolute path.
    const std::string& file() const noexcept { return m_file; }

    /// Take an idle connection, or open one.
    Lease lease();

private:
    std::unique_ptr<Connection> takeIdle();
    void giveBack(std::unique_ptr<Connection> connection) noexcept;

    // Set by the constructor, never changed.
    const std::string m_file;
    const Access m_access;
    const std::chrono::milliseconds m_busyTimeout;

    foundation::Mutex m_mutex;
    std::vector<std::unique_ptr<Connection>> m_idle CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider::sqlite
