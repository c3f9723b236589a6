// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ConnectionPool.hpp"

#include <foundation/threads/Mutex.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <vector>

namespace storage::cloudprovider::sqlite {

/// Lets the threads of one client that change the store take turns; those that wait at the same time share a
/// transaction, and with it the wait for the disk. Threads: any.
class WriteQueue {
public:
    /// A change of the store.
    struct Change {
        /// What changes it; it throws, or is done.
        std::function<void(Connection&)> action;

        Durability durability = Durability::AtOnce;

        /// The bytes that it writes at most, if it may share a transaction: then it runs on the thread of any caller,
        /// and may run twice, of which the first is undone. Without a value it is alone, on the thread of its own
        /// caller, and runs once.
        std::optional<std::uint64_t> shareableSize;
    };

    /// pool has to outlive this.
    WriteQueue(ConnectionPool& pool, std::chrono::milliseconds busyTimeout);

    /// Run a change in a transaction. When it returns, the change is as durable as it is to be; when it throws, there
    /// is none. One that throws does not keep the others of its transaction from being made.
    ///
    /// Errors  SQLite::Exception with SQLITE_BUSY when its turn does not come in time, or another client keeps writing;
    ///         what the commit throws, for all who share it; whatever action throws.
    void run(const Change& change);

private:
    // A change whose caller waits.
    struct Waiter {
        const Change& change;
        bool isTaken = false;  // into a transaction
        bool isDone = false;
        std::exception_ptr failure;
        foundation::ConditionVariable wakeUp;
    };
    using Group = std::vector<Waiter*>;

    void waitForTurn(Waiter& waiter);
    void lead(Waiter& first);
    void takeGroup(Group& group);
    static bool runTogether(Connection& connection, const Group& group) noexcept;
    template <class MakeFailure>
    static void fail(const Group& group, const MakeFailure& makeFailure);
    void finish(const Group& group) noexcept;

    // Set by the constructor, never changed.
    ConnectionPool& m_pool;
    const std::chrono::milliseconds m_busyTimeout;

    // Guards what is in m_waiters, too, but for failures: those belong to who leads, until isDone. A leaf: nothing is
    // locked, and nothing waited for, under it.
    foundation::Mutex m_mutex;
    // In the order of their turns; the first one leads, and stays until it is done.
    std::deque<Waiter*> m_waiters CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider::sqlite
