// SPDX-License-Identifier: Apache-2.0
#include "schema.hpp"

#include "errors.hpp"

#include <SQLiteCpp/Column.h>
#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

// object -> content <- slice -> chunk         upload -> upload_part -> content
//
// A content is a number that slices name; it belongs to one object or to one part of an upload. Its slices
// cover it from 0 without gaps, each by a run of bytes of one chunk.
// (1) Slices of several contents may refer to one chunk: that is what copying a part makes.
// (2) A chunk never changes. It goes in the transaction that removes the last slice that refers to it.
// (3) Numbers of contents and uploads come from counter and are never given twice, so a tag made of one never
//     means other bytes.

namespace storage::cloudprovider::sqlite {

namespace {

constexpr int kApplicationId = 0x434F424A;  // "COBJ"
constexpr int kVersion = 1;

// The tables without rowid are their own index: a listing reads object from front to back, and keys, being
// blobs, compare as bytes (sqlite.org/withoutrowid.html). Times are microseconds since 1970-01-01 UTC.
constexpr const char* kTables = R"(
    CREATE TABLE object(
        key BLOB PRIMARY KEY NOT NULL, content INTEGER NOT NULL, size INTEGER NOT NULL,
        modified INTEGER NOT NULL) WITHOUT ROWID;
    CREATE TABLE slice(
        content INTEGER NOT NULL, position INTEGER NOT NULL, size INTEGER NOT NULL,
        chunk INTEGER NOT NULL, start INTEGER NOT NULL, PRIMARY KEY(content, position)) WITHOUT ROWID;
    CREATE INDEX slice_chunk ON slice(chunk);
    CREATE TABLE chunk(id INTEGER PRIMARY KEY, bytes BLOB NOT NULL);
    CREATE TABLE part(
        content INTEGER NOT NULL, number INTEGER NOT NULL, position INTEGER NOT NULL, size INTEGER NOT NULL,
        tag BLOB NOT NULL, PRIMARY KEY(content, position, number)) WITHOUT ROWID;
    CREATE TABLE upload(id INTEGER PRIMARY KEY, key BLOB NOT NULL, touched INTEGER NOT NULL);
    CREATE TABLE upload_part(
        upload INTEGER NOT NULL, number INTEGER NOT NULL, content INTEGER NOT NULL, size INTEGER NOT NULL,
        PRIMARY KEY(upload, number)) WITHOUT ROWID;
    CREATE TABLE counter(last INTEGER NOT NULL);
    INSERT INTO counter VALUES(0);
)";

int getNumber(Connection& connection, const char* sql) {
    return connection.database().execAndGet(sql).getInt();
}

// Whether the database is a store; false when it is empty. Throws when it is something else.
bool isStore(Connection& connection) {
    const int applicationId = getNumber(connection, "PRAGMA application_id");
    const int version = getNumber(connection, "PRAGMA user_version");
    if (applicationId == kApplicationId) {
        if (version != kVersion) {
            throw StoreFailure("the store has the format " + std::to_string(version) + ", this program knows only " +
                               std::to_string(kVersion));
        }
        return true;
    }
    const int objects = getNumber(connection, "SELECT count(*) FROM sqlite_schema");
    if (applicationId != 0 || version != 0 || objects != 0) {
        throw StoreFailure("the file is another program's database, not an object store");
    }
    return false;
}

// SQLite takes a file of one byte for an empty one, for the sake of some file systems.
void refuseSingleByte(const Connection& connection) {
    std::error_code error;
    if (std::filesystem::file_size(connection.file(), error) == 1) {
        throw SQLite::Exception(sqlite3_errstr(SQLITE_NOTADB), SQLITE_NOTADB);
    }
}

void createTables(Connection& connection) {
    // Has an effect only before the first page is written.
    connection.database().exec("PRAGMA page_size=16384");
    SQLite::Transaction transaction(connection.database(), SQLite::TransactionBehavior::IMMEDIATE);
    if (!isStore(connection)) {
        connection.database().exec(kTables);
        connection.database().exec("PRAGMA application_id=" + std::to_string(kApplicationId));
        connection.database().exec("PRAGMA user_version=" + std::to_string(kVersion));
    }
    transaction.commit();
}

// SQLite does not wait by itself for others to leave the database when its mode changes, so this does.
std::string switchToWriteAheadLog(Connection& connection, std::chrono::milliseconds busyTimeout) {
    const auto deadline = std::chrono::steady_clock::now() + busyTimeout;
    while (true) {
        try {
            return connection.database().execAndGet("PRAGMA journal_mode=WAL").getString();
        } catch (const SQLite::Exception& error) {
            if (error.getErrorCode() != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline) {
                throw;
            }
            sqlite3_sleep(1);
        }
    }
}

}  // namespace

void openSchema(Connection& connection, std::chrono::milliseconds busyTimeout) {
    // What turns out to be another program's keeps its log, too: the last one to close moves it into the file.
    connection.setKeepsLog(true);
    // In one transaction, so that a store that somebody is making is seen complete or not at all.
    bool isThere = false;
    {
        SQLite::Transaction transaction(connection.database());
        isThere = isStore(connection);
    }
    if (!isThere) {
        refuseSingleByte(connection);
        createTables(connection);
    }
    connection.setKeepsLog(false);
    const std::string mode = switchToWriteAheadLog(connection, busyTimeout);
    if (mode != "wal") {
        throw StoreFailure("the file cannot have a write-ahead log; SQLite offers the journal mode " + mode);
    }
}

}  // namespace storage::cloudprovider::sqlite
