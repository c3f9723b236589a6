// SPDX-License-Identifier: Apache-2.0
#include "contents.hpp"

#include "checksums.hpp"
#include "errors.hpp"

#include <algorithm>
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace storage::cloudprovider::sqlite {

namespace {

// Large enough that a chunk's rows cost nothing beside its bytes, small enough to be held in memory per call.
constexpr std::uint64_t kMaxChunkSize = std::uint64_t{1024} * 1024;

std::int64_t sumSlice(std::int64_t content, const Slice& slice) {
    return sumRow(Table::Slices, content, toInteger(slice.position), toInteger(slice.size), slice.chunk,
                  toInteger(slice.start), slice.chunkSum);
}

// A slice out of position, size, chunk, start, chunk_sum, sum; nothing when it is damaged.
std::optional<Slice> getSlice(const Query& row, std::int64_t content) {
    const auto position = row.getInteger(0);
    const auto size = row.getInteger(1);
    const auto start = row.getInteger(3);
    if (position < 0 || size < 0 || start < 0) {
        return std::nullopt;
    }
    const Slice slice{toSize(position), toSize(size), row.getInteger(2), toSize(start), row.getInteger(4)};
    return sumSlice(content, slice) == row.getInteger(5) ? std::optional(slice) : std::nullopt;
}

std::string describe(std::int64_t content, std::uint64_t position) {
    return "content " + std::to_string(content) + " lacks its byte " + std::to_string(position);
}

// Give the slices of count bytes of a content, from position first on, in order, the first and the last one cut to fit.
template <class Action>
void forEachSlice(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count,
                  const Action& action) {
    const std::uint64_t end = first + count;
    Query rows = connection.query(
        "SELECT position, size, chunk, start, chunk_sum, sum FROM slices WHERE content = ?1 AND position >="
        " (SELECT max(position) FROM slices WHERE content = ?1 AND position <= ?2) ORDER BY position",
        content, toInteger(first));
    for (std::uint64_t position = first; position < end;) {
        std::optional<Slice> slice = rows.next() ? getSlice(rows, content) : std::nullopt;
        // Only the first slice may begin before the position; a gap between slices shows here, too.
        if (!slice || slice->position > position || position - slice->position >= slice->size ||
            (position != first && slice->position != position)) {
            throwDamaged(describe(content, position));
        }
        const std::uint64_t offset = position - slice->position;
        slice->position = position;
        slice->start += offset;
        slice->size = std::min(slice->size - offset, end - position);
        action(*slice);
        position += slice->size;
    }
}

void readSlice(Connection& connection, const Slice& slice, std::ostream& sink) {
    const std::string name = "chunk " + std::to_string(slice.chunk);
    Query row = connection.query("SELECT bytes FROM chunks WHERE id = ?", slice.chunk);
    if (!row.next()) {
        throwDamaged(name + " is missing");
    }
    const std::string_view bytes = row.getBytes(0);
    requireSum(slice.chunkSum, sumChunk(slice.chunk, bytes), name);
    if (slice.size > bytes.size() || slice.start > bytes.size() - slice.size) {
        throwDamaged(name + " is too short");
    }
    if (!sink.write(bytes.data() + slice.start, static_cast<std::streamsize>(slice.size))) {
        throw StoreFailure("the receiver takes no more bytes");
    }
}

// A run of the bytes that a stream is to have.
struct Run {
    std::uint64_t position;
    std::uint64_t count;
    std::uint64_t size;  // of all
};

void readInto(char* buffer, std::istream& data, const Run& run) {
    data.read(buffer, static_cast<std::streamsize>(run.count));
    const auto got = static_cast<std::uint64_t>(data.gcount());
    if (got != run.count) {
        throw StoreFailure("the data ends after " + std::to_string(run.position + got) + " of " +
                           std::to_string(run.size) + " bytes");
    }
}

void insertChunk(Connection& connection, std::int64_t content, std::uint64_t position, std::string_view bytes) {
    connection.query("INSERT INTO chunks(bytes) VALUES(?)", bytes).run();
    const std::int64_t chunk = connection.database().getLastInsertRowid();
    insertSlice(connection, content, {position, bytes.size(), chunk, 0, sumChunk(chunk, bytes)});
}

std::int64_t getLastNumber(Connection& connection) {
    Query row = connection.query("SELECT last, sum FROM numbers");
    if (!row.next()) {
        throwDamaged("its counter is missing");
    }
    const std::int64_t last = row.getInteger(0);
    requireSum(row.getInteger(1), sumRow(Table::Numbers, last), "its counter");
    return last;
}

}  // namespace

std::int64_t newNumber(Connection& connection) {
    const std::int64_t number = getLastNumber(connection) + 1;
    connection.query("UPDATE numbers SET last = ?, sum = ?", number, sumRow(Table::Numbers, number)).run();
    return number;
}

void checkNumbers(Connection& connection) {
    getLastNumber(connection);
}

void insertSlice(Connection& connection, std::int64_t content, const Slice& slice) {
    connection
        .query("INSERT INTO slices(content, position, size, chunk, start, chunk_sum, sum) VALUES(?, ?, ?, ?, ?, ?, ?)",
               content, toInteger(slice.position), toInteger(slice.size), slice.chunk, toInteger(slice.start),
               slice.chunkSum, sumSlice(content, slice))
        .run();
}

std::string readBytes(std::istream& data, std::uint64_t size) {
    std::string bytes(size, '\0');
    readInto(bytes.data(), data, {0, size, size});
    return bytes;
}

std::int64_t writeContent(Connection& connection, std::istream& data, std::uint64_t size) {
    const std::int64_t content = newNumber(connection);
    std::vector<char> buffer(std::min(size, kMaxChunkSize));
    for (std::uint64_t position = 0; position < size;) {
        const std::uint64_t count = std::min(size - position, kMaxChunkSize);
        readInto(buffer.data(), data, {position, count, size});
        insertChunk(connection, content, position, {buffer.data(), count});
        position += count;
    }
    return content;
}

std::int64_t writeContent(Connection& connection, std::string_view bytes) {
    const std::int64_t content = newNumber(connection);
    if (!bytes.empty()) {
        insertChunk(connection, content, 0, bytes);
    }
    return content;
}

std::int64_t shareContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count) {
    const std::int64_t copy = newNumber(connection);
    forEachSlice(connection, content, first, count, [&](Slice slice) {
        slice.position -= first;
        insertSlice(connection, copy, slice);
    });
    return copy;
}

void moveContent(Connection& connection, std::int64_t content, std::uint64_t size, std::int64_t target,
                 std::uint64_t position) {
    forEachSlice(connection, content, 0, size, [&](Slice slice) {
        slice.position += position;
        insertSlice(connection, target, slice);
    });
    connection.query("DELETE FROM slices WHERE content = ?", content).run();
}

void readContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count,
                 std::ostream& sink) {
    forEachSlice(connection, content, first, count, [&](const Slice& slice) { readSlice(connection, slice, sink); });
}

std::size_t dropSlices(Connection& connection, std::int64_t content, std::size_t most) {
    std::size_t count = 0;
    std::int64_t last = 0;
    std::vector<std::int64_t> chunks;
    {
        Query rows = connection.query(
            "SELECT position, size, chunk, start, chunk_sum, sum FROM slices WHERE content = ? ORDER BY position"
            " LIMIT ?",
            content, toInteger(most));
        for (; rows.next(); ++count) {
            last = rows.getInteger(0);
            // A chunk that a damaged row names may be somebody else's.
            if (const std::optional<Slice> slice = getSlice(rows, content)) {
                chunks.push_back(slice->chunk);
            }
        }
    }
    if (count < most || !connection.change("DELETE FROM slices WHERE content = ? AND position <= ?", content, last)) {
        // Also when damage has put the rows out of their order, so that none is found by its position.
        connection.query("DELETE FROM slices WHERE content = ?", content).run();
        count = std::min(count, most - 1);
    }
    for (const std::int64_t chunk : chunks) {
        connection
            .query("DELETE FROM chunks WHERE id = ?1 AND NOT EXISTS (SELECT 1 FROM slices WHERE chunk = ?1)", chunk)
            .run();
    }
    return count;
}

void dropParts(Connection& connection, std::int64_t content) {
    connection.query("DELETE FROM parts WHERE content = ?", content).run();
}

void dropContent(Connection& connection, std::int64_t content) {
    constexpr std::size_t kAtOnce = 1000;  // in memory
    while (dropSlices(connection, content, kAtOnce) == kAtOnce) {
    }
    dropParts(connection, content);
}

}  // namespace storage::cloudprovider::sqlite
