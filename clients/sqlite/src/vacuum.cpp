// SPDX-License-Identifier: Apache-2.0
#include "vacuum.hpp"

#include "errors.hpp"

#include <sqlite3.h>

namespace storage::cloudprovider::sqlite {

namespace {

// Take some free pages off the file's end. False when there was none to take.
bool shrinkStep(Connection& connection) {
    const std::int64_t before = connection.getNumber("PRAGMA freelist_count");
    if (before == 0) {
        return false;
    }
    connection.database().exec("PRAGMA incremental_vacuum(256)");  // 4 MiB
    return connection.getNumber("PRAGMA freelist_count") < before;
}

// Makes a reserve again, whatever happens.
class Restoration {
public:
    explicit Restoration(const DiskReserve& reserve) : m_reserve(reserve) {}
    Restoration(const Restoration&) = delete;
    Restoration& operator=(const Restoration&) = delete;
    ~Restoration() { m_reserve.restore(); }

private:
    const DiskReserve& m_reserve;
};

}  // namespace

std::int64_t getFileSize(Connection& connection) {
    return connection.getNumber("PRAGMA page_count") * connection.getNumber("PRAGMA page_size");
}

void shrink(Connection& connection, const DiskReserve& reserve, const std::function<void()>& onStep) {
    const Restoration restoration(reserve);
    const auto run = [&] {
        do {
            moveLog(connection);
            onStep();
        } while (shrinkStep(connection));
    };
    try {
        run();
    } catch (const SQLite::Exception& error) {
        if (!isDiskFull(error)) {
            throw;
        }
        reserve.giveUp();
        run();
    }
}

bool canShrink(Connection& connection) {
    return connection.getNumber("PRAGMA auto_vacuum") != 0;
}

void rewrite(Connection& connection) {
    connection.database().exec("PRAGMA auto_vacuum=INCREMENTAL; VACUUM");
}

void moveLog(Connection& connection) {
    // What does not fit now is moved by whoever comes next.
    sqlite3_wal_checkpoint_v2(connection.database().getHandle(), "main", SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    const Impatience impatience(connection);
    sqlite3_wal_checkpoint_v2(connection.database().getHandle(), "main", SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

}  // namespace storage::cloudprovider::sqlite
