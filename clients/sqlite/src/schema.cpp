// SPDX-License-Identifier: Apache-2.0
#include "schema.hpp"

#include "checksums.hpp"
#include "contents.hpp"
#include "errors.hpp"
#include "objectRows.hpp"
#include "objects.hpp"
#include "uploads.hpp"

#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <string_view>

// objects -> content <- slices -> chunks         uploads -> sent_parts -> content
//
// A content is a number that slices name; it belongs to one object or to one part of an upload. Its slices
// cover it from 0 without gaps, each by a run of bytes of one chunk.
// (1) Slices of several contents may refer to one chunk: that is what copying a part makes.
// (2) A chunk never changes. It goes in the transaction that removes the last slice that refers to it.
// (3) Numbers of contents and uploads come from numbers and are never given twice, so a tag made of one never
//     means other bytes.
// (4) Every row has a checksum, which is compared whenever the row is read, but for those of chunks: theirs are in the
//     slices, so that bytes are found only by those who know what they were. Objects name the next key besides.
// (5) Tables have other names than in format 1: a program that knows only that one, and has the store open while it
//     is converted, finds none of them, and fails.

namespace storage::cloudprovider::sqlite {

namespace {

constexpr int kApplicationId = 0x434F424A;  // "COBJ"
constexpr int kOldVersion = 1;
constexpr int kVersion = 2;
constexpr const char* kEmpty = "the file is empty";

// The tables without rowid are their own index: a listing reads objects from front to back, and keys, being
// blobs, compare as bytes (sqlite.org/withoutrowid.html). Times are microseconds since 1970-01-01 UTC. The words are
// those in which SQLite keeps them, to be compared; it is the one to put quotes around chunks, when it renames the
// table of format 1.
constexpr const char* kChunks = R"(CREATE TABLE "chunks"(id INTEGER PRIMARY KEY, bytes BLOB NOT NULL))";
constexpr std::array kTables{
    "CREATE TABLE objects(key BLOB PRIMARY KEY NOT NULL, content INTEGER NOT NULL, size INTEGER NOT NULL,"
    " modified INTEGER NOT NULL, parts INTEGER NOT NULL, next INTEGER NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID",
    "CREATE TABLE slices(content INTEGER NOT NULL, position INTEGER NOT NULL, size INTEGER NOT NULL,"
    " chunk INTEGER NOT NULL, start INTEGER NOT NULL, chunk_sum INTEGER NOT NULL, sum INTEGER NOT NULL,"
    " PRIMARY KEY(content, position)) WITHOUT ROWID",
    "CREATE INDEX slices_chunk ON slices(chunk)",
    "CREATE TABLE parts(content INTEGER NOT NULL, number INTEGER NOT NULL, position INTEGER NOT NULL,"
    " size INTEGER NOT NULL, tag BLOB NOT NULL, sum INTEGER NOT NULL, PRIMARY KEY(content, position, number))"
    " WITHOUT ROWID",
    "CREATE TABLE uploads(id INTEGER PRIMARY KEY, key BLOB NOT NULL, touched INTEGER NOT NULL, sum INTEGER NOT NULL)",
    "CREATE TABLE sent_parts(upload INTEGER NOT NULL, number INTEGER NOT NULL, content INTEGER NOT NULL,"
    " size INTEGER NOT NULL, sum INTEGER NOT NULL, PRIMARY KEY(upload, number)) WITHOUT ROWID",
    "CREATE TABLE numbers(last INTEGER NOT NULL, sum INTEGER NOT NULL)",
};

enum class Found { Nothing, OldStore, Store };

// What the database is. Throws when it is something else.
Found identify(Connection& connection) {
    const auto applicationId = connection.getNumber("PRAGMA application_id");
    const auto version = connection.getNumber("PRAGMA user_version");
    if (applicationId == kApplicationId) {
        if (version != kVersion && version != kOldVersion) {
            throw StoreFailure("the store has the format " + std::to_string(version) + ", this program knows only " +
                               std::to_string(kVersion));
        }
        return version == kVersion ? Found::Store : Found::OldStore;
    }
    const auto objects = connection.getNumber("SELECT count(*) FROM sqlite_schema");
    if (applicationId != 0 || version != 0 || objects != 0) {
        throw StoreFailure("the file is another program's database, not an object store");
    }
    return Found::Nothing;
}

// Whether the database is a store of the present format; false when it is empty.
bool isStore(Connection& connection) {
    const Found found = identify(connection);
    if (found == Found::OldStore) {
        throw OutdatedStore("the store has the old format 1; \"cloudfs upgrade\", or upgradeSqliteStore, converts it");
    }
    return found == Found::Store;
}

// A table that is not what it was could take rows for others, and what is written to it may be lost.
void checkTables(Connection& connection) {
    const auto require = [&](std::string_view sql) {
        if (!connection.query("SELECT 1 FROM sqlite_schema WHERE CAST(sql AS BLOB) = ?", sql).next()) {
            throwDamaged("its tables are not as they were made");
        }
    };
    require(kChunks);
    std::for_each(kTables.begin(), kTables.end(), require);
}

// SQLite takes a file of one byte for an empty one, for the sake of some file systems.
void refuseSingleByte(const Connection& connection) {
    std::error_code error;
    if (std::filesystem::file_size(connection.file(), error) == 1) {
        throw SQLite::Exception(sqlite3_errstr(SQLITE_NOTADB), SQLITE_NOTADB);
    }
}

// The same, and the tables are those of a store. In one transaction, so that a store that somebody is making is seen
// complete or not at all.
bool isSoundStore(Connection& connection) {
    const SQLite::Transaction transaction(connection.database());
    const bool isThere = isStore(connection);
    if (isThere) {
        checkTables(connection);
    }
    return isThere;
}

void createTables(Connection& connection) {
    for (const char* const sql : kTables) {
        connection.database().exec(sql);
    }
}

void setVersion(Connection& connection) {
    connection.database().exec("PRAGMA user_version=" + std::to_string(kVersion));
}

void insertNumbers(Connection& connection, std::int64_t last) {
    connection.query("INSERT INTO numbers(last, sum) VALUES(?, ?)", last, sumRow(Table::Numbers, last)).run();
}

void createStore(Connection& connection) {
    // Both have an effect only before the first page is written.
    connection.database().exec("PRAGMA page_size=16384; PRAGMA auto_vacuum=INCREMENTAL");
    SQLite::Transaction transaction(connection.database(), SQLite::TransactionBehavior::IMMEDIATE);
    if (!isStore(connection)) {
        connection.database().exec(kChunks);
        createTables(connection);
        insertNumbers(connection, 0);
        insertRow(connection, {});
        connection.database().exec("PRAGMA application_id=" + std::to_string(kApplicationId));
        setVersion(connection);
    }
    transaction.commit();
}

// A chunk that is missing cannot have a checksum; reading will tell.
std::int64_t sumOldChunk(Connection& connection, std::int64_t chunk) {
    Query row = connection.query("SELECT bytes FROM chunk WHERE id = ?", chunk);
    return row.next() ? sumChunk(chunk, row.getBytes(0)) : 0;
}

// Chunk by chunk: each is read once, however many slices share it.
void convertSlices(Connection& connection) {
    Query chunks = connection.query("SELECT DISTINCT chunk FROM slice ORDER BY chunk");
    while (chunks.next()) {
        const std::int64_t chunk = chunks.getInteger(0);
        const std::int64_t sum = sumOldChunk(connection, chunk);
        Query rows = connection.query("SELECT content, position, size, start FROM slice WHERE chunk = ?", chunk);
        while (rows.next()) {
            insertSlice(
                connection, rows.getInteger(0),
                {toSize(rows.getInteger(1)), toSize(rows.getInteger(2)), chunk, toSize(rows.getInteger(3)), sum});
        }
    }
}

void convertParts(Connection& connection) {
    Query rows = connection.query("SELECT content, number, position, size, tag FROM part");
    while (rows.next()) {
        notePart(connection, rows.getInteger(0),
                 {toSize(rows.getInteger(1)), toSize(rows.getInteger(2)), toSize(rows.getInteger(3)),
                  std::string(rows.getBytes(4))});
    }
}

// From the last one on, as each names the next.
void convertObjects(Connection& connection) {
    Query rows = connection.query(
        "SELECT key, content, size, modified, (SELECT count(*) FROM part WHERE part.content = object.content)"
        " FROM object ORDER BY key DESC");
    std::int64_t next = 0;
    while (rows.next()) {
        const ObjectRow row{std::string(rows.getBytes(0)),
                            rows.getInteger(1),
                            rows.getInteger(2),
                            rows.getInteger(3),
                            rows.getInteger(4),
                            next};
        insertRow(connection, row);
        next = sumKey(row.key);
    }
    ObjectRow beginning;
    beginning.next = next;
    insertRow(connection, beginning);
}

void convertUploads(Connection& connection) {
    Query uploads = connection.query("SELECT id, key, touched FROM upload");
    while (uploads.next()) {
        insertUpload(connection, uploads.getInteger(0), uploads.getBytes(1), uploads.getInteger(2));
    }
    Query parts = connection.query("SELECT upload, number, content, size FROM upload_part");
    while (parts.next()) {
        insertSentPart(connection, parts.getInteger(0), parts.getInteger(1), parts.getInteger(2), parts.getInteger(3));
    }
}

// The bytes stay where they are: chunks only get their new name.
void convertTables(Connection& connection) {
    createTables(connection);
    convertSlices(connection);
    convertParts(connection);
    convertObjects(connection);
    convertUploads(connection);
    insertNumbers(connection, connection.database().execAndGet("SELECT last FROM counter").getInt64());
    connection.database().exec(
        "DROP TABLE object; DROP TABLE slice; DROP TABLE part; DROP TABLE upload; DROP TABLE upload_part;"
        "DROP TABLE counter; ALTER TABLE chunk RENAME TO chunks");
    setVersion(connection);
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
    const bool isThere = isSoundStore(connection);
    if (!isThere) {
        refuseSingleByte(connection);
        createStore(connection);
    }
    connection.setKeepsLog(false);
    const std::string mode = switchToWriteAheadLog(connection, busyTimeout);
    if (mode != "wal") {
        throw StoreFailure("the file cannot have a write-ahead log; SQLite offers the journal mode " + mode);
    }
}

void checkSchema(Connection& connection) {
    if (!isSoundStore(connection)) {
        throw StoreFailure(kEmpty);
    }
}

bool upgradeSchema(Connection& connection) {
    connection.setKeepsLog(true);  // as openSchema, for what is no store
    SQLite::Transaction transaction(connection.database(), SQLite::TransactionBehavior::IMMEDIATE);
    const Found found = identify(connection);
    if (found == Found::Nothing) {
        throw StoreFailure(kEmpty);
    }
    connection.setKeepsLog(false);
    if (found == Found::OldStore) {
        convertTables(connection);
        transaction.commit();
    }
    return found == Found::OldStore;
}

}  // namespace storage::cloudprovider::sqlite
