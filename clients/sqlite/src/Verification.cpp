// SPDX-License-Identifier: Apache-2.0
#include "Verification.hpp"

#include "contents.hpp"
#include "errors.hpp"
#include "objectRows.hpp"
#include "objects.hpp"
#include "uploads.hpp"

#include <SQLiteCpp/Column.h>
#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <streambuf>

namespace storage::cloudprovider::sqlite {

namespace {

// Takes bytes that nobody wants, and tells how many.
class CountingBuffer : public std::streambuf {
public:
    explicit CountingBuffer(const std::function<void(std::uint64_t)>& onBytes) : m_onBytes(onBytes) {}

protected:
    std::streamsize xsputn(const char* /*bytes*/, std::streamsize count) override {
        if (m_onBytes) {
            m_onBytes(static_cast<std::uint64_t>(count));
        }
        return count;
    }

private:
    const std::function<void(std::uint64_t)>& m_onBytes;
};

// Writes to nowhere; what the counting throws is thrown on.
class CountingStream {
public:
    explicit CountingStream(const std::function<void(std::uint64_t)>& onBytes)
        : m_buffer(onBytes), m_stream(&m_buffer) {
        m_stream.exceptions(std::ios::badbit);
    }
    std::ostream& stream() { return m_stream; }

private:
    CountingBuffer m_buffer;
    std::ostream m_stream;
};

// What SQLite says of a file that is not as it left it, or that the disk cannot read any more.
bool isDamage(const SQLite::Exception& error) {
    const int code = error.getErrorCode() & 0xFF;
    return code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_IOERR;
}

}  // namespace

Verification::Verification(Connection& connection, const VerificationObserver& observer)
    : m_connection(connection), m_observer(observer) {}

void Verification::readObject(const std::string& key) {
    const SQLite::Transaction transaction(m_connection.database());
    bool isThere = true;
    if (!check(key, [&] { isThere = findRow(m_connection, key).has_value(); })) {
        ++m_result.Objects;
    } else if (isThere) {
        readStored(key);
    }
}

void Verification::readObjects(const std::string& prefix) {
    std::optional<std::string> start = prefix.empty() ? std::string(1, '\0') : prefix;
    m_isLastSound = true;
    while (start) {
        const SQLite::Transaction transaction(m_connection.database());
        std::optional<std::string> key;
        const std::string place = "the list of objects from \"" + *start + "\" on";
        if (!check({}, [&] {
                try {
                    key = readNext(*start, prefix);
                } catch (const SQLite::Exception& error) {
                    isDamage(error) ? throwDamaged(place + ": " + error.what()) : throw;
                }
            })) {
            return;
        }
        start = key;
        if (start) {
            start->push_back('\0');  // the key right after it
        }
    }
}

// Read the first object from start on. Result: its key; none when there is none.
std::optional<std::string> Verification::readNext(const std::string& start, const std::string& prefix) {
    Query query = m_connection.query(
        "SELECT " CLOUDPROVIDER_OBJECT_COLUMNS " FROM objects WHERE key >= ? ORDER BY key LIMIT 1", start);
    auto key = query.next() ? std::optional(std::string(query.getBytes(0))) : std::nullopt;
    if (m_isLastSound) {  // else nobody knows what belongs after it
        check({}, [&] { requireNext(findRowBefore(m_connection, start), key); });
    }
    if (!key || key->compare(0, prefix.size(), prefix) != 0) {
        return std::nullopt;
    }
    m_isLastSound = check(*key, [&] { getObjectRow(query); });
    if (m_isLastSound) {
        readStored(*key);
    } else {
        ++m_result.Objects;
    }
    return key;
}

void Verification::readStored(const std::string& key) {
    ++m_result.Objects;
    check(key, [&] {
        CountingStream sink(m_observer.OnBytes);
        const StoredObject object = getExistingObject(m_connection, key);
        readContent(m_connection, object.content, 0, object.size, sink.stream());
        describeObject(m_connection, key);
    });
}

void Verification::readRest() {
    for (std::int64_t upload = 0; upload >= 0;) {
        const SQLite::Transaction transaction(m_connection.database());
        if (!check({}, [&] { upload = readNextUpload(upload); })) {
            break;
        }
    }
    check({}, [&] { checkTables(); });
    // Where a row is damaged, what it named seems to belong to nobody.
    if (m_result.Damages == 0) {
        const SQLite::Transaction transaction(m_connection.database());
        check({}, [&] { checkOwners(); });
    }
}

// Whether all bytes belong to something. Those of a row that was lost as a whole do not, nor what was left when a
// damaged object was removed.
void Verification::checkOwners() {
    const auto requireNone = [&](const char* sql, const char* what) {
        if (const std::int64_t count = m_connection.database().execAndGet(sql).getInt64(); count > 0) {
            throwDamaged(std::to_string(count) + what);
        }
    };
    requireNone("SELECT count(*) FROM chunks WHERE NOT EXISTS (SELECT 1 FROM slices WHERE chunk = chunks.id)",
                " chunks of bytes belong to nothing");
    requireNone(
        "SELECT count(DISTINCT content) FROM slices WHERE content NOT IN"
        " (SELECT content FROM objects UNION ALL SELECT content FROM sent_parts)",
        " contents belong to no object and to no upload");
}

// Read the first upload after that one. Result: its number, -1 when there is none.
std::int64_t Verification::readNextUpload(std::int64_t after) {
    const std::int64_t upload = findUploadBehind(m_connection, after);
    if (upload >= 0) {
        check({}, [&] {
            CountingStream sink(m_observer.OnBytes);
            readUpload(m_connection, upload, sink.stream());
        });
    }
    return upload;
}

// An index that lacks an entry would let a chunk go that is still referred to.
void Verification::checkTables() {
    for (const char* const sql : {"PRAGMA integrity_check(slices)", "PRAGMA integrity_check(objects)"}) {
        const std::string answer = m_connection.database().execAndGet(sql).getString();
        if (answer != "ok") {
            throwDamaged(answer);
        }
    }
    checkNumbers(m_connection);
}

template <class Action>
bool Verification::check(const std::string& key, const Action& action) {
    try {
        action();
        return true;
    } catch (const StoreDamaged& damage) {
        tellDamage(key, damage.what());
    } catch (const SQLite::Exception& error) {
        if (!isDamage(error)) {
            throw;
        }
        tellDamage(key, error.what());
    }
    return false;
}

void Verification::tellDamage(const std::string& key, const std::string& cause) {
    ++m_result.Damages;
    if (m_observer.OnDamage) {
        m_observer.OnDamage(key, cause);
    }
}

}  // namespace storage::cloudprovider::sqlite
