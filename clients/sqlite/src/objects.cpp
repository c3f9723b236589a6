// SPDX-License-Identifier: Apache-2.0
#include "objects.hpp"

#include "checksums.hpp"
#include "contents.hpp"
#include "errors.hpp"
#include "objectRows.hpp"
#include "uploads.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>
#include <vector>

namespace storage::cloudprovider::sqlite {

namespace {

// The parts that an object put whole is shown with.
constexpr std::uint64_t kUniformPartSize = std::uint64_t{8} * 1024 * 1024;

// The part of that index; the object must be long enough to have it.
PartInfo makeUniformPart(const StoredObject& object, std::uint64_t index) {
    const std::uint64_t offset = index * kUniformPartSize;
    return {index, offset, std::min(kUniformPartSize, object.size - offset),
            std::to_string(object.content) + '.' + std::to_string(index)};
}

// At least one, though it be empty.
std::vector<PartInfo> makeUniformParts(const StoredObject& object) {
    std::vector<PartInfo> parts;
    do {
        parts.push_back(makeUniformPart(object, parts.size()));
    } while (parts.size() * kUniformPartSize < object.size);
    return parts;
}

std::int64_t sumPart(std::int64_t content, const PartInfo& part) {
    return sumRow(Table::Parts, content, toInteger(part.Index), toInteger(part.Offset), toInteger(part.Size),
                  std::string_view(part.Tag));
}

// The parts that the object was uploaded in. Their indexes are the numbers they were sent with.
std::vector<PartInfo> getUploadedParts(Connection& connection, const StoredObject& object) {
    std::vector<PartInfo> parts;
    std::uint64_t end = 0;
    Query rows = connection.query(
        "SELECT number, position, size, tag, sum FROM parts WHERE content = ? ORDER BY position, number",
        object.content);
    while (rows.next()) {
        PartInfo part{toSize(rows.getInteger(0)), toSize(rows.getInteger(1)), toSize(rows.getInteger(2)),
                      std::string(rows.getBytes(3))};
        requireSum(rows.getInteger(4), sumPart(object.content, part), "part " + std::to_string(part.Index));
        if (part.Offset != end) {
            throwDamaged("no part begins at " + std::to_string(end));
        }
        end += part.Size;
        parts.push_back(std::move(part));
    }
    if (toInteger(parts.size()) != object.parts || (object.parts != 0 && end != object.size)) {
        throwDamaged("there are " + std::to_string(parts.size()) + " of " + std::to_string(object.parts) + " parts");
    }
    return parts;
}

[[noreturn]] void throwMissing(const std::string& key) {
    throw ResourceNotFoundException(
        foundation::storage::provider::ExceptionContext("there is no object \"" + key + '"'));
}

StoredObject toObject(const ObjectRow& row) {
    return {row.content, toSize(row.size), toTime(row.modified), row.parts};
}

}  // namespace

std::int64_t currentTime() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

boost::posix_time::ptime toTime(std::int64_t microseconds) {
    const boost::posix_time::ptime seconds = utils::long2Ptime(microseconds / 1'000'000 * 1000);
    return seconds + boost::posix_time::microseconds(microseconds % 1'000'000);
}

std::optional<StoredObject> findObject(Connection& connection, const std::string& key) {
    const std::optional<ObjectRow> row = findRow(connection, key);
    return row ? std::optional(toObject(*row)) : std::nullopt;
}

StoredObject getExistingObject(Connection& connection, const std::string& key) {
    const std::optional<StoredObject> object = findObject(connection, key);
    if (!object) {
        throwMissing(key);
    }
    return *object;
}

StoredObject getExistingObject(Connection& connection, const std::string& key, const std::string& version) {
    requireExpected(connection, key, ExpectedObject::version(version));
    return getExistingObject(connection, key);
}

void requireExpected(Connection& connection, const std::string& key, const ExpectedObject& expected,
                     const std::string& subject) {
    if (expected.isAnything()) {
        return;
    }
    const std::optional<StoredObject> object = findObject(connection, key);
    if (!expected.isMetBy(object ? std::optional(makeVersion(object->content)) : std::nullopt)) {
        throw ObjectChanged(subject + (!object               ? " was removed meanwhile"
                                       : expected.isAbsent() ? " was created meanwhile"
                                                             : " was replaced meanwhile"));
    }
}

void requireRange(const StoredObject& object, std::uint64_t offset, std::uint64_t size) {
    if (size > object.size || offset > object.size - size) {
        throw StoreFailure("the object has only " + std::to_string(object.size) + " bytes, not " +
                           std::to_string(size) + " from " + std::to_string(offset) + " on");
    }
}

std::string makeVersion(std::int64_t content) {
    return std::to_string(content);
}

bool replaceObject(Connection& connection, const std::string& key, std::int64_t content, std::uint64_t size,
                   std::int64_t parts) {
    const auto former = storeRow(connection, {key, content, toInteger(size), currentTime(), parts, 0});
    return former && discardContent(connection, key, former->content);
}

void notePart(Connection& connection, std::int64_t content, const PartInfo& part) {
    connection
        .query("INSERT INTO parts(content, number, position, size, tag, sum) VALUES(?, ?, ?, ?, ?, ?)", content,
               toInteger(part.Index), toInteger(part.Offset), toInteger(part.Size), part.Tag, sumPart(content, part))
        .run();
}

bool copyObject(Connection& connection, const std::string& from, const std::string& fromVersion, const std::string& to,
                const ExpectedObject& expected) {
    const StoredObject object = getExistingObject(connection, from, fromVersion);
    requireExpected(connection, to, expected, '"' + to + '"');
    const std::int64_t copy = shareContent(connection, object.content, 0, object.size);
    for (const PartInfo& part : getUploadedParts(connection, object)) {
        notePart(connection, copy, part);
    }
    return replaceObject(connection, to, copy, object.size, object.parts);
}

bool removeObject(Connection& connection, const std::string& key, const std::string& version) {
    requireExpected(connection, key, ExpectedObject::version(version));
    const std::optional<ObjectRow> row = findRow(connection, key);
    if (!row) {
        throwMissing(key);
    }
    removeRow(connection, *row);
    return discardContent(connection, key, row->content);
}

std::optional<ObjectDescription> describeObject(Connection& connection, const std::string& key) {
    const std::optional<StoredObject> object = findObject(connection, key);
    if (!object) {
        return std::nullopt;
    }
    std::vector<PartInfo> parts = getUploadedParts(connection, *object);
    if (parts.empty()) {
        parts = makeUniformParts(*object);
    }
    for (std::size_t at = 0; at < parts.size(); ++at) {
        parts[at].Index = at;
    }
    return ObjectDescription{makeVersion(object->content), std::move(parts)};
}

bool hasPart(Connection& connection, const StoredObject& object, const PartInfo& part) {
    // Uploaded parts never have such a tag, so the first answer needs no look at how the object was stored.
    const PartInfo uniform = makeUniformPart(object, part.Offset / kUniformPartSize);
    if (part.Tag == uniform.Tag) {
        return part.Offset == uniform.Offset && part.Size == uniform.Size;
    }
    Query rows =
        connection.query("SELECT number, sum FROM parts WHERE content = ? AND position = ? AND size = ? AND tag = ?",
                         object.content, toInteger(part.Offset), toInteger(part.Size), part.Tag);
    if (!rows.next()) {
        return false;
    }
    const PartInfo stored{toSize(rows.getInteger(0)), part.Offset, part.Size, part.Tag};
    requireSum(rows.getInteger(1), sumPart(object.content, stored), "part " + std::to_string(stored.Index));
    return true;
}

}  // namespace storage::cloudprovider::sqlite
