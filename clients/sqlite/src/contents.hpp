// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <cstdint>
#include <iosfwd>

/// The bytes of objects and parts. All of it happens in the caller's transaction.
///
/// A content is named by its number; schema.cpp tells how its bytes are held.
/// Errors  SQLite::Exception; StoreFailure for a damaged store and for streams that fail.
namespace storage::cloudprovider::sqlite {

/// Give a number that no content and no upload ever had.
std::int64_t newNumber(Connection& connection);

/// Store the next size bytes of data as a new content, a chunk at a time. Throws StoreFailure when
/// data ends before.
std::int64_t writeContent(Connection& connection, std::istream& data, std::uint64_t size);

/// Make a new content of count bytes of another one, from position first on. No byte is copied.
std::int64_t shareContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count);

/// Append all of a content to another one, whose size is position so far; the former is no more.
void moveContent(Connection& connection, std::int64_t content, std::int64_t target, std::uint64_t position);

/// Write count bytes from position first on to sink.
void readContent(Connection& connection, std::int64_t content, std::uint64_t first, std::uint64_t count,
                 std::ostream& sink);

/// Remove a content, its layout, and the bytes that no other content refers to.
void dropContent(Connection& connection, std::int64_t content);

}  // namespace storage::cloudprovider::sqlite
