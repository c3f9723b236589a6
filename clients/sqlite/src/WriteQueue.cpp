// SPDX-License-Identifier: Apache-2.0
#include "WriteQueue.hpp"

#include <SQLiteCpp/Exception.h>
#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

// wait --first in the queue--> lead: begin --> take those that wait by then --> run each --> commit --> finish
//   `--taken by who leads-------------------------------------------------------------------------------^
//
// (1) Who leads begins its transaction before it takes others: while it waits for another process, more of them come,
//     and when that takes too long it alone fails.
// (2) A change that was taken is run, so its caller waits for it however long that takes.
// (3) Those that share a transaction are run without savepoints first: SQLite would copy each page once for each of
//     them. When one throws, the transaction begins anew, and each has its savepoint.

namespace storage::cloudprovider::sqlite {

namespace {

// So that one that comes late does not wait long for the others, and the log stays small.
constexpr std::size_t kMostChanges = 64;
constexpr std::uint64_t kMostBytes = std::uint64_t{4} * 1024 * 1024;

// Immediate: waiting for writers of other clients happens here and nowhere else.
std::unique_ptr<SQLite::Transaction> begin(Connection& connection) {
    return std::make_unique<SQLite::Transaction>(connection.database(), SQLite::TransactionBehavior::IMMEDIATE);
}

// Run a change that others share the transaction of. Result: what it threw; then nothing is left of it.
std::exception_ptr runAmongOthers(Connection& connection, const std::function<void(Connection&)>& action) {
    connection.database().exec("SAVEPOINT change");
    std::exception_ptr failure;
    try {
        action(connection);
    } catch (...) {
        // On a full disk, among others, SQLite rolls the whole transaction back.
        if (connection.isIdle()) {
            throw;
        }
        connection.database().exec("ROLLBACK TO change");
        failure = std::current_exception();
    }
    connection.database().exec("RELEASE change");
    return failure;
}

}  // namespace

// The limit, SQLite's own, keeps the clock from running over.
WriteQueue::WriteQueue(ConnectionPool& pool, std::chrono::milliseconds busyTimeout)
    : m_pool(pool), m_busyTimeout(std::min(busyTimeout, std::chrono::milliseconds(std::numeric_limits<int>::max()))) {}

void WriteQueue::run(const Change& change) {
    Waiter waiter{change, false, false, nullptr, {}};
    waitForTurn(waiter);
    if (!waiter.isDone) {
        lead(waiter);
    }
    if (waiter.failure) {
        std::rethrow_exception(std::exchange(waiter.failure, nullptr));
    }
}

// Until somebody else has done it, or it is the first.
void WriteQueue::waitForTurn(Waiter& waiter) {
    const auto deadline = std::chrono::steady_clock::now() + m_busyTimeout;
    foundation::MutexLock lock(m_mutex);
    m_waiters.push_back(&waiter);
    const auto isOver = [&]() CLOUDPROVIDER_REQUIRES(m_mutex) {
        return waiter.isDone || (!waiter.isTaken && m_waiters.front() == &waiter);
    };
    const auto isTakenOrOver = [&]() CLOUDPROVIDER_REQUIRES(m_mutex) { return waiter.isTaken || isOver(); };
    if (!waiter.wakeUp.waitUntil(lock, deadline, isTakenOrOver)) {
        m_waiters.erase(std::find(m_waiters.begin(), m_waiters.end(), &waiter));
        throw SQLite::Exception(sqlite3_errstr(SQLITE_BUSY), SQLITE_BUSY);
    }
    waiter.wakeUp.wait(lock, isOver);
}

void WriteQueue::lead(Waiter& first) {
    Group group{&first};
    try {
        group.reserve(kMostChanges);
        const ConnectionPool::Lease connection = m_pool.lease();
        connection->setDurability(first.change.durability);
        auto transaction = begin(*connection);
        takeGroup(group);
        if (group.size() == 1) {
            first.change.action(*connection);
        } else if (!runTogether(*connection, group)) {
            transaction.reset();
            transaction = begin(*connection);
            for (Waiter* const waiter : group) {
                waiter->failure = runAmongOthers(*connection, waiter->change.action);
            }
        }
        transaction->commit();
    } catch (const SQLite::Exception& error) {
        // Each gets its own: threads would share the counters of one.
        fail(group, [&] { return std::make_exception_ptr(SQLite::Exception(error.what(), error.getErrorCode())); });
    } catch (...) {
        fail(group, [] { return std::current_exception(); });
    }
    finish(group);
}

// False when one of them threw: then none may be committed.
bool WriteQueue::runTogether(Connection& connection, const Group& group) noexcept {
    try {
        for (const Waiter* const waiter : group) {
            waiter->change.action(connection);
        }
        return true;
    } catch (...) {
        return false;  // it throws again when it is run by itself
    }
}

// Those that have failed already keep their own reason.
template <class MakeFailure>
void WriteQueue::fail(const Group& group, const MakeFailure& makeFailure) {
    for (Waiter* const waiter : group) {
        if (!waiter->failure) {
            waiter->failure = makeFailure();
        }
    }
}

// Add those that wait right after the first one, up to one that is alone.
void WriteQueue::takeGroup(Group& group) {
    const auto sizeOf = [](const Waiter& waiter) { return waiter.change.shareableSize.value_or(kMostBytes + 1); };
    const foundation::MutexLock lock(m_mutex);
    group.front()->isTaken = true;
    std::uint64_t size = sizeOf(*group.front());
    for (std::size_t at = 1; at < std::min(m_waiters.size(), kMostChanges); ++at) {
        Waiter& next = *m_waiters[at];
        size += sizeOf(next);
        if (size > kMostBytes || next.change.durability != group.front()->change.durability) {
            break;
        }
        next.isTaken = true;
        group.push_back(&next);
    }
}

// A waiter may be gone as soon as it is told, and the lock is free.
void WriteQueue::finish(const Group& group) noexcept {
    const foundation::MutexLock lock(m_mutex);
    m_waiters.erase(m_waiters.begin(), m_waiters.begin() + static_cast<std::ptrdiff_t>(group.size()));
    for (Waiter* const waiter : group) {
        waiter->isDone = true;
        waiter->wakeUp.notifyOne();
    }
    if (!m_waiters.empty()) {
        m_waiters.front()->wakeUp.notifyOne();
    }
}

}  // namespace storage::cloudprovider::sqlite
