// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace storage::cloudprovider::sqlite {

/// A prepared statement at work; it is reset when this goes. One at a time of each statement and connection.
class Query {
public:
    explicit Query(SQLite::Statement& statement) : m_statement(statement) {}
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query();

    /// Step to the next row; false after the last one.
    bool next() { return m_statement.executeStep(); }

    /// Step to the end.
    void run();

    /// A number of the current row; 0 for NULL.
    std::int64_t getInteger(int column) const;

    /// A blob of the current row, until the next step.
    std::string_view getBytes(int column) const;

private:
    SQLite::Statement& m_statement;
};

/// How a connection uses its file.
enum class Access {
    Create,        ///< reads and changes it; an empty database is made when there is none
    Change,        ///< reads and changes it
    Read,          ///< reads it, with the files beside it, which others may use at the same time
    ReadAlone,     ///< reads it, and the log beside it, without any locks: nobody may change them meanwhile
    ReadImmutable  ///< reads it as if there were no log
};

/// When what a transaction changes survives a loss of power; the end of a process it survives from its commit on.
enum class Durability {
    AtOnce,  ///< from its commit on, and so does all that was committed before, by whomever
    Later    ///< from the next commit AtOnce, or move of the log, on; until then it may be lost, but never in part
};

/// One connection to a store's file with its prepared statements.
///
/// Errors   SQLite::Exception, here and wherever a connection is used.
/// Threads  one at a time.
class Connection {
public:
    /// Errors   SQLITE_READONLY when the file is to be changed and cannot be written.
    Connection(const std::string& file, Access access, std::chrono::milliseconds busyTimeout);

    SQLite::Database& database() noexcept { return m_database; }

    /// How others are opened like this one; the file is there by now.
    Access access() const noexcept { return m_access == Access::Create ? Access::Change : m_access; }

    bool isReadOnly() const noexcept { return m_access > Access::Change; }

    /// The file's absolute path, as SQLite resolved it when it was opened.
    std::string file() const;

    /// How long to wait for others from now on.
    void setBusyTimeout(std::chrono::milliseconds timeout) noexcept;

    /// How long it waits for others.
    std::chrono::milliseconds busyTimeout() const noexcept { return m_busyTimeout; }

    /// Whether closing leaves the write-ahead log as it is.
    void setKeepsLog(bool isKept);

    /// Say how durable the transactions are that begin from now on; at first they are so at once. None may be open.
    void setDurability(Durability durability);

    /// Whether no transaction is open.
    bool isIdle() const noexcept;

    /// Begin a statement; texts are bound as blobs.
    ///
    /// Values   sql must live as long as the connection, texts as long as the result: they are not copied.
    template <class... Values>
    Query query(const char* sql, const Values&... values) {
        SQLite::Statement& statement = prepare(sql);
        int index = 0;
        (bind(statement, ++index, values), ...);
        return Query(statement);
    }

    /// The one number that a statement, seldom used, answers.
    std::int64_t getNumber(const char* sql);

    /// Run a statement to its end. Result: whether it changed any row.
    template <class... Values>
    bool change(const char* sql, const Values&... values) {
        query(sql, values...).run();
        return hasChanged();
    }

private:
    SQLite::Statement& prepare(const char* sql);
    bool hasChanged() const noexcept;
    static void bind(SQLite::Statement& statement, int index, std::int64_t value);
    static void bind(SQLite::Statement& statement, int index, std::string_view value);

    const Access m_access;
    std::chrono::milliseconds m_busyTimeout;
    Durability m_durability = Durability::AtOnce;
    SQLite::Database m_database;
    std::map<std::string_view, SQLite::Statement> m_statements;
};

/// Lets a connection wait for nobody, as long as this lives.
class Impatience {
public:
    explicit Impatience(Connection& connection) : m_connection(connection), m_former(connection.busyTimeout()) {
        m_connection.setBusyTimeout(std::chrono::milliseconds(0));
    }
    Impatience(const Impatience&) = delete;
    Impatience& operator=(const Impatience&) = delete;
    ~Impatience() { m_connection.setBusyTimeout(m_former); }

private:
    Connection& m_connection;
    const std::chrono::milliseconds m_former;
};

}  // namespace storage::cloudprovider::sqlite
