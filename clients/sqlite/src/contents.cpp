// SPDX-License-Identifier: Apache-2.0
#include "contents.hpp"

#include "errors.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace storage::cloudprovider::sqlite {

namespace {

// Large enough that a chunk's rows cost nothing beside its bytes, small enough to be held in memory per call.
constexpr std::uint64_t kMaxChunkSize = std::uint64_t{1024} * 1024;
constexpr std::uint64_t kReadBufferSize = std::uint64_t{256} * 1024;

// Reads runs of bytes out of chunks without fetching the whole of them.
class ChunkReader {
public:
    explicit ChunkReader(Connection& connection) : m_connection(connection) {}
    ChunkReader(const ChunkReader&) = delete;
    ChunkReader& operator=(const ChunkReader&) = delete;
    ~ChunkReader() { sqlite3_blob_close(m_blob); }

    void open(std::int64_t chunk) {
        SQLite::Database& database = m_connection.database();
        database.check(m_blob == nullptr
                           ? sqlite3_blob_open(database.getHandle(), "main", "chunk", "bytes", chunk, 0, &m_blob)
                           : sqlite3_blob_reopen(m_blob, chunk));
    }

    std::uint64_t size() const { return static_cast<std::uint64_t>(sqlite3_blob_bytes(m_blob)); }

    void read(char* target, std::uint64_t start, std::uint64_t count) {
        m_connection.database().check(
            sqlite3_blob_read(m_blob, target, static_cast<int>(count), static_cast<int>(start)));
    }

private:
    Connection& m_connection;
    sqlite3_blob* m_blob = nullptr;
};

void insertSlice(Connection& connection, std::int64_t content, std::uint64_t position, std::uint64_t size,
                 std::int64_t chunk) {
    connection
        .query("INSERT INTO slice(content, position, size, chunk, start) VALUES(?, ?, ?, ?, 0)", content,
               toInteger(position), toInteger(size), chunk)
        .run();
}

// A run of a content's bytes, as a row of slice tells it.
struct Slice {
    std::uint64_t position;
    std::uint64_t size;
    std::int64_t chunk;
    std::uint64_t start;
};

// Write count bytes of a slice, from offset on, to sink.
void readSlice(ChunkReader& reader, const Slice& slice, std::uint64_t offset, std::uint64_t count, char* buffer,
               std::ostream& sink) {
    reader.open(slice.chunk);
    if (slice.start + slice.size > reader.size()) {
        throwDamaged("chunk " + std::to_string(slice.chunk) + " is too short");
    }
    for (std::uint64_t done = 0; done < count;) {
        const std::uint64_t step = std::min(count - done, kReadBufferSize);
        reader.read(buffer, slice.start + offset + done, step);
        if (!sink.write(buffer, static_cast<std::streamsize>(step))) {
            throw StoreFailure("the receiver takes no more bytes");
        }
        done += step;
    }
}

}  // namespace

std::int64_t newNumber(Connection& connection) {
    Query query = connection.query("UPDATE counter SET last = last + 1 RETURNING last");
    if (!query.next()) {
        throwDamaged("its counter is missing");
    }
    return query.getInteger(0);
}

std::int64_t writeContent(Connection& connection, std::istream& data, std::uint64_t size) {
    const std::int64_t content = newNumber(connection);
    std::vector<char> buffer(std::min(size, kMaxChunkSize));
    for (std::uint64_t position = 0; position < size;) {
        const std::uint64_t count = std::min(size - position, kMaxChunkSize);
        data.read(buffer.data(), static_cast<std::streamsize>(count));
        const auto got = static_cast<std::uint64_t>(data.gcount());
        if (got != count) {
            throw StoreFailure("the data ends after " + std::to_string(position + got) + " of " + std::to_string(size) +
                               " bytes");
        }
        connection.query("INSERT INTO chunk(bytes) VALUES(?)", std::string_view(buffer.data(), count)).run();
        insertSlice(connection, content, position, count, connection.database().getLastInsertRowid());
        position += count;
    }
    return content;
}

std::int64_t shareContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count) {
    if (count == 0) {
        return newNumber(connection);
    }
    const std::int64_t from = toInteger(first);
    const std::int64_t end = toInteger(first + count);
    const std::int64_t copy = newNumber(connection);
    connection
        .query(
            "INSERT INTO slice(content, position, size, chunk, start)"
            " SELECT ?1, max(position, ?3) - ?3, min(position + size, ?4) - max(position, ?3), chunk,"
            "  start + max(position, ?3) - position"
            " FROM slice WHERE content = ?2 AND position < ?4 AND position >="
            "  (SELECT max(position) FROM slice WHERE content = ?2 AND position <= ?3)",
            copy, content, from, end)
        .run();
    Query sum = connection.query("SELECT sum(size) FROM slice WHERE content = ?", copy);
    sum.next();
    if (toSize(sum.getInteger(0)) != count) {
        throwDamaged("content " + std::to_string(content) + " lacks bytes");
    }
    return copy;
}

void moveContent(Connection& connection, std::int64_t content, std::int64_t target, std::uint64_t position) {
    connection
        .query("UPDATE slice SET content = ?2, position = position + ?3 WHERE content = ?1", content, target,
               toInteger(position))
        .run();
}

void readContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count,
                 std::ostream& sink) {
    const std::uint64_t end = first + count;
    std::vector<char> buffer(std::min(count, kReadBufferSize));
    ChunkReader reader(connection);
    Query rows = connection.query(
        "SELECT position, size, chunk, start FROM slice WHERE content = ?1 AND position >="
        " (SELECT max(position) FROM slice WHERE content = ?1 AND position <= ?2) ORDER BY position",
        content, toInteger(first));
    for (std::uint64_t position = first; position < end;) {
        const bool isThere = rows.next();
        const Slice slice = isThere ? Slice{toSize(rows.getInteger(0)), toSize(rows.getInteger(1)), rows.getInteger(2),
                                            toSize(rows.getInteger(3))}
                                    : Slice{};
        // Only the first slice may begin before the position; a gap between slices shows here, too.
        if (slice.position > position || position - slice.position >= slice.size ||
            (position != first && slice.position != position)) {
            throwDamaged("content " + std::to_string(content) + " lacks its byte " + std::to_string(position));
        }
        const std::uint64_t offset = position - slice.position;
        const std::uint64_t step = std::min(slice.size - offset, end - position);
        readSlice(reader, slice, offset, step, buffer.data(), sink);
        position += step;
    }
}

void dropContent(Connection& connection, std::int64_t content) {
    connection
        .query(
            "DELETE FROM chunk WHERE id IN (SELECT chunk FROM slice WHERE content = ?1) AND NOT EXISTS"
            " (SELECT 1 FROM slice AS other WHERE other.chunk = chunk.id AND other.content <> ?1)",
            content)
        .run();
    connection.query("DELETE FROM slice WHERE content = ?", content).run();
    connection.query("DELETE FROM part WHERE content = ?", content).run();
}

}  // namespace storage::cloudprovider::sqlite
