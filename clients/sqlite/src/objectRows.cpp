// SPDX-License-Identifier: Apache-2.0
#include "objectRows.hpp"

#include "checksums.hpp"
#include "errors.hpp"

#include <utility>

namespace storage::cloudprovider::sqlite {

namespace {

std::int64_t sumObjectRow(const ObjectRow& row) {
    return sumRow(Table::Objects, std::string_view(row.key), row.content, row.size, row.modified, row.parts, row.next);
}

std::string nameRow(const std::string& key) {
    return key.empty() ? "the beginning of the list of objects" : "the row of \"" + key + '"';
}

ObjectRow getOnlyRow(Query query) {
    if (!query.next()) {
        throwDamaged("the list of objects has no beginning");
    }
    return getObjectRow(query);
}

// Change which row follows.
void linkRow(Connection& connection, ObjectRow row, std::int64_t next) {
    row.next = next;
    connection.query("UPDATE objects SET next = ?2, sum = ?3 WHERE key = ?1", row.key, row.next, sumObjectRow(row))
        .run();
}

}  // namespace

ObjectRow getObjectRow(const Query& query) {
    ObjectRow row{std::string(query.getBytes(0)),
                  query.getInteger(1),
                  query.getInteger(2),
                  query.getInteger(3),
                  query.getInteger(4),
                  query.getInteger(5)};
    requireSum(query.getInteger(6), sumObjectRow(row), nameRow(row.key));
    return row;
}

ObjectRow findNearestRow(Connection& connection, std::string_view key) {
    return getOnlyRow(connection.query(
        "SELECT " CLOUDPROVIDER_OBJECT_COLUMNS " FROM objects WHERE key <= ? ORDER BY key DESC LIMIT 1", key));
}

ObjectRow findRowBefore(Connection& connection, std::string_view key) {
    return getOnlyRow(connection.query(
        "SELECT " CLOUDPROVIDER_OBJECT_COLUMNS " FROM objects WHERE key < ? ORDER BY key DESC LIMIT 1", key));
}

void requireNext(const ObjectRow& row, std::optional<std::string_view> key) {
    if (row.next != (key ? sumKey(*key) : 0)) {
        throwDamaged("another row belongs behind " + nameRow(row.key));
    }
}

std::optional<ObjectRow> findRow(Connection& connection, const std::string& key) {
    if (key.empty()) {
        return std::nullopt;
    }
    ObjectRow row = findNearestRow(connection, key);
    if (row.key == key) {
        return row;
    }
    Query next = connection.query("SELECT key FROM objects WHERE key > ? ORDER BY key LIMIT 1", key);
    requireNext(row, next.next() ? std::optional(next.getBytes(0)) : std::nullopt);
    return std::nullopt;
}

std::optional<ObjectRow> storeRow(Connection& connection, ObjectRow row) {
    ObjectRow nearest = findNearestRow(connection, row.key);
    row.next = nearest.next;
    if (nearest.key == row.key) {
        connection
            .query(
                "UPDATE objects SET content = ?2, size = ?3, modified = ?4, parts = ?5, next = ?6, sum = ?7"
                " WHERE key = ?1",
                row.key, row.content, row.size, row.modified, row.parts, row.next, sumObjectRow(row))
            .run();
        return nearest;
    }
    insertRow(connection, row);
    linkRow(connection, std::move(nearest), sumKey(row.key));
    return std::nullopt;
}

void removeRow(Connection& connection, const ObjectRow& row) {
    linkRow(connection, findRowBefore(connection, row.key), row.next);
    connection.query("DELETE FROM objects WHERE key = ?", row.key).run();
}

void insertRow(Connection& connection, const ObjectRow& row) {
    connection
        .query("INSERT INTO objects(" CLOUDPROVIDER_OBJECT_COLUMNS ") VALUES(?, ?, ?, ?, ?, ?, ?)", row.key,
               row.content, row.size, row.modified, row.parts, row.next, sumObjectRow(row))
        .run();
}

}  // namespace storage::cloudprovider::sqlite
