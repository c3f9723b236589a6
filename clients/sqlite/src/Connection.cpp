// SPDX-License-Identifier: Apache-2.0
#include "Connection.hpp"

#include <SQLiteCpp/Column.h>
#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <limits>

namespace storage::cloudprovider::sqlite {

namespace {

int toTimeout(std::chrono::milliseconds timeout) {
    using Milliseconds = std::chrono::milliseconds::rep;
    return static_cast<int>(std::clamp<Milliseconds>(timeout.count(), 0, std::numeric_limits<int>::max()));
}

int toFlags(Access access) {
    switch (access) {
        case Access::Create:
            return SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX;
        case Access::Change:
            return SQLite::OPEN_READWRITE | SQLite::OPEN_NOMUTEX;
        case Access::ReadImmutable:
            return SQLite::OPEN_READONLY | SQLite::OPEN_URI | SQLite::OPEN_NOMUTEX;
        default:
            return SQLite::OPEN_READONLY | SQLite::OPEN_NOMUTEX;
    }
}

// The URI of an absolute path (sqlite.org/uri.html).
std::string toImmutable(const std::string& file) {
    constexpr std::string_view kHexadecimal = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char character : file) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '/' || std::isalnum(byte) != 0) {
            uri += character;
        } else {
            uri += {'%', kHexadecimal[byte / 16], kHexadecimal[byte % 16]};
        }
    }
    return uri + "?immutable=1";
}

}  // namespace

Query::~Query() {
    m_statement.tryReset();
}

void Query::run() {
    while (next()) {
    }
}

std::int64_t Query::getInteger(int column) const {
    return m_statement.getColumn(column).getInt64();
}

std::string_view Query::getBytes(int column) const {
    const SQLite::Column value = m_statement.getColumn(column);
    // The blob before its size: asking for it may convert the value.
    const void* const bytes = value.getBlob();
    return {static_cast<const char*>(bytes), static_cast<std::size_t>(value.getBytes())};
}

Connection::Connection(const std::string& file, Access access, std::chrono::milliseconds busyTimeout)
    : m_access(access),
      m_busyTimeout(busyTimeout),
      m_database(access == Access::ReadImmutable ? toImmutable(file) : file, toFlags(access), toTimeout(busyTimeout),
                 access == Access::ReadAlone ? "unix-none" : "") {
    if (isReadOnly()) {
        if (access == Access::ReadAlone) {
            // Before anything is read: the index of the log is then kept in memory (sqlite.org/wal.html#noshm).
            m_database.exec("PRAGMA locking_mode=EXCLUSIVE");
        }
        return;
    }
    // SQLite falls back to reading only, and then fails later in other words. The answer needs no look into
    // the file, for which SQLite may need files beside it that cannot be made.
    if (sqlite3_db_readonly(m_database.getHandle(), "main") != 0) {
        throw SQLite::Exception(sqlite3_errstr(SQLITE_READONLY), SQLITE_READONLY);
    }
    // The last one to close leaves the files beside the store, empty, so that those who may not make them can read it.
    int isKept = 1;
    m_database.check(sqlite3_file_control(m_database.getHandle(), "main", SQLITE_FCNTL_PERSIST_WAL, &isKept));
    // FULL: what is committed survives a loss of power, see setDurability. The limit: a large transaction does not
    // leave a log of its size behind. The cache: pages of bytes pass through it once, and a small
    // one stays in the processor's, which makes reading large objects a tenth faster; the system keeps the rest.
    m_database.exec(
        "PRAGMA synchronous=FULL; PRAGMA foreign_keys=OFF; PRAGMA secure_delete=FAST; PRAGMA "
        "journal_size_limit=67108864; PRAGMA cache_size=-512");
}

std::string Connection::file() const {
    return sqlite3_db_filename(m_database.getHandle(), "main");
}

void Connection::setBusyTimeout(std::chrono::milliseconds timeout) noexcept {
    m_busyTimeout = timeout;
    sqlite3_busy_timeout(m_database.getHandle(), toTimeout(timeout));
}

void Connection::setKeepsLog(bool isKept) {
    m_database.check(
        sqlite3_db_config(m_database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, isKept ? 1 : 0, nullptr));
}

// NORMAL leaves the log to the system until somebody has it written: a commit under FULL, which waits for the whole
// file, whoever wrote to it, or moving the log into the file. After a loss of power the log counts up to where it is
// whole, so what was committed under NORMAL goes before, and never without, what was committed later
// (sqlite.org/pragma.html#pragma_synchronous, sqlite.org/fileformat2.html#wal_file_format).
void Connection::setDurability(Durability durability) {
    if (durability != m_durability) {
        m_database.exec(durability == Durability::AtOnce ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
        m_durability = durability;
    }
}

std::int64_t Connection::getNumber(const char* sql) {
    return m_database.execAndGet(sql).getInt64();
}

bool Connection::isIdle() const noexcept {
    return sqlite3_get_autocommit(m_database.getHandle()) != 0;
}

bool Connection::hasChanged() const noexcept {
    return sqlite3_changes(m_database.getHandle()) > 0;
}

SQLite::Statement& Connection::prepare(const char* sql) {
    const auto found = m_statements.find(sql);
    return found != m_statements.end() ? found->second : m_statements.try_emplace(sql, m_database, sql).first->second;
}

void Connection::bind(SQLite::Statement& statement, int index, std::int64_t value) {
    statement.bind(index, value);
}

void Connection::bind(SQLite::Statement& statement, int index, std::string_view value) {
    // A null pointer would bind NULL, not the empty blob.
    statement.bindNoCopy(index, value.data() == nullptr ? "" : value.data(), static_cast<int>(value.size()));
}

}  // namespace storage::cloudprovider::sqlite
