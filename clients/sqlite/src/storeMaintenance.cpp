// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/sqlite/storeMaintenance.hpp>

#include "Connection.hpp"
#include "DiskReserve.hpp"
#include "Verification.hpp"
#include "errors.hpp"
#include "schema.hpp"
#include "storeFile.hpp"
#include "vacuum.hpp"

#include <sqlite3.h>

#include <algorithm>

namespace storage::cloudprovider {

namespace {

std::uint64_t compact(sqlite::Connection& connection, const std::function<void(std::uint64_t)>& onBytes) {
    const std::int64_t first = sqlite::getFileSize(connection);
    std::int64_t size = first;
    const auto tell = [&] {
        const std::int64_t now = sqlite::getFileSize(connection);
        if (onBytes && now < size) {
            onBytes(static_cast<std::uint64_t>(size - now));
        }
        size = now;
    };
    if (!sqlite::canShrink(connection)) {
        sqlite::rewrite(connection);
    }
    sqlite::shrink(connection, sqlite::DiskReserve(connection.file()), tell);
    return static_cast<std::uint64_t>(std::max<std::int64_t>(first - size, 0));
}

}  // namespace

bool upgradeSqliteStore(const std::string& file, const SqliteOptions& options) {
    const std::string name = sqlite::toDatabaseName(file);
    return sqlite::translateErrors([&] { return "cannot upgrade the store " + name; },
                                   [&] {
                                       sqlite::Connection connection(name, sqlite::Access::Change, options.BusyTimeout);
                                       return sqlite::upgradeSchema(connection);
                                   });
}

VerificationResult verifySqliteStore(const std::string& file, const std::string& key,
                                     const VerificationObserver& observer, const SqliteOptions& options) {
    const std::string name = sqlite::toDatabaseName(file);
    const auto describe = [&] { return "cannot verify the store " + name; };
    return sqlite::translateErrors(describe, [&] {
        const auto connection = sqlite::openStore(name, false, options.BusyTimeout);
        sqlite::Verification verification(*connection, observer);
        if (key.empty()) {
            verification.readObjects({});
            verification.readRest();
        } else {
            verification.readObject(key);
            verification.readObjects(key.back() == '/' ? key : key + '/');
        }
        return verification.result();
    });
}

std::uint64_t compactSqliteStore(const std::string& file, const std::function<void(std::uint64_t bytes)>& onBytes,
                                 const SqliteOptions& options) {
    const std::string name = sqlite::toDatabaseName(file);
    return sqlite::translateErrors([&] { return "cannot compact the store " + name; },
                                   [&] {
                                       const auto connection = sqlite::openStore(name, false, options.BusyTimeout);
                                       if (connection->isReadOnly()) {
                                           throw SQLite::Exception("it cannot be written", SQLITE_READONLY);
                                       }
                                       return compact(*connection, onBytes);
                                   });
}

}  // namespace storage::cloudprovider
