// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

/// The bytes of objects and parts. All of it happens in the caller's transaction.
///
/// A content is named by its number; schema.cpp tells how its bytes are held.
/// Errors  SQLite::Exception; StoreDamaged; StoreFailure for streams that fail.
namespace storage::cloudprovider::sqlite {

/// A run of a content's bytes.
struct Slice {
    std::uint64_t position = 0;  ///< in the content
    std::uint64_t size = 0;
    std::int64_t chunk = 0;
    std::uint64_t start = 0;    ///< in the chunk
    std::int64_t chunkSum = 0;  ///< of the whole chunk
};

/// Add a slice to a content.
void insertSlice(Connection& connection, std::int64_t content, const Slice& slice);

/// Give a number that no content and no upload ever had.
std::int64_t newNumber(Connection& connection);

/// See that the last number given is as it was written.
void checkNumbers(Connection& connection);

/// Read the next size bytes of data. Throws StoreFailure when it ends before.
std::string readBytes(std::istream& data, std::uint64_t size);

/// Store the next size bytes of data as a new content, a chunk at a time. Throws StoreFailure when
/// data ends before.
std::int64_t writeContent(Connection& connection, std::istream& data, std::uint64_t size);

/// Store bytes, as many as fit into a chunk, as a new content.
std::int64_t writeContent(Connection& connection, std::string_view bytes);

/// Make a new content of count bytes of another one, from position first on. No byte is copied.
std::int64_t shareContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count);

/// Append a content of that size to another one, whose size is position so far; the former is no more.
void moveContent(Connection& connection, std::int64_t content, std::uint64_t size, std::int64_t target,
                 std::uint64_t position);

/// Write count bytes from position first on to sink, chunk by chunk, each after its checksum was compared.
void readContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count,
                 std::ostream& sink);

/// Remove the first slices of a content that is going to be removed, and the bytes that no other slice refers to;
/// damage is met as by dropContent.
///
/// Values   most: so many slices at most, not 0.
/// Result   how many there were; fewer than most: the content has none left.
std::size_t dropSlices(Connection& connection, std::int64_t content, std::size_t most);

/// Remove a content's layout.
void dropParts(Connection& connection, std::int64_t content);

/// Remove a content, its layout, and the bytes that no other content refers to; damage does not stop that, but the
/// chunk that a damaged slice names stays.
void dropContent(Connection& connection, std::int64_t content);

}  // namespace storage::cloudprovider::sqlite
