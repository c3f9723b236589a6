// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The rows that tell which objects there are: a chain in the order of their keys, so that one that is lost shows
/// where it is missing. It begins with a row of the empty key, which is no object.
///
/// Errors  StoreDamaged, which names the key; SQLite::Exception.
namespace storage::cloudprovider::sqlite {

/// One of the rows.
struct ObjectRow {
    std::string key;
    std::int64_t content = 0;
    std::int64_t size = 0;
    std::int64_t modified = 0;
    std::int64_t parts = 0;  ///< how many rows of parts there are; none for an object put whole
    std::int64_t next = 0;   ///< the checksum of the next row's key, 0 in the last row
};

/// The columns of a query whose rows getObjectRow reads.
#define CLOUDPROVIDER_OBJECT_COLUMNS "key, content, size, modified, parts, next, sum"

/// Read the current row and compare its checksum.
ObjectRow getObjectRow(const Query& query);

/// The last row whose key is not after that one, if only the first row.
ObjectRow findNearestRow(Connection& connection, std::string_view key);

/// The last row before a key that is not empty.
ObjectRow findRowBefore(Connection& connection, std::string_view key);

/// Throw a StoreDamaged unless the row says that the next key is that one; none: that it is the last.
void requireNext(const ObjectRow& row, std::optional<std::string_view> key);

/// The row of a key, if there is one; when there is none, the rows around its place say so, too.
std::optional<ObjectRow> findRow(Connection& connection, const std::string& key);

/// Store a row for a key, in place of what was there.
///
/// Values   row.next does not count.
/// Result   the row that was there.
std::optional<ObjectRow> storeRow(Connection& connection, ObjectRow row);

/// Remove a row that is there.
void removeRow(Connection& connection, const ObjectRow& row);

/// Put a row where none is, as it is.
void insertRow(Connection& connection, const ObjectRow& row);

}  // namespace storage::cloudprovider::sqlite
