// SPDX-License-Identifier: Apache-2.0
#include "objects.hpp"

#include "contents.hpp"
#include "errors.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <chrono>
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

std::vector<PartInfo> getUploadedParts(Connection& connection, std::int64_t content) {
    std::vector<PartInfo> parts;
    Query rows =
        connection.query("SELECT position, size, tag FROM part WHERE content = ? ORDER BY position, number", content);
    while (rows.next()) {
        parts.push_back(
            {parts.size(), toSize(rows.getInteger(0)), toSize(rows.getInteger(1)), std::string(rows.getBytes(2))});
    }
    return parts;
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
    Query row = connection.query("SELECT content, size, modified FROM object WHERE key = ?", key);
    if (!row.next()) {
        return std::nullopt;
    }
    return StoredObject{row.getInteger(0), toSize(row.getInteger(1)), toTime(row.getInteger(2))};
}

StoredObject getExistingObject(Connection& connection, const std::string& key) {
    const std::optional<StoredObject> object = findObject(connection, key);
    if (!object) {
        throw ResourceNotFoundException(
            foundation::storage::provider::ExceptionContext("there is no object \"" + key + '"'));
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

void replaceObject(Connection& connection, const std::string& key, std::int64_t content, std::uint64_t size) {
    const std::optional<StoredObject> former = findObject(connection, key);
    connection
        .query("INSERT OR REPLACE INTO object(key, content, size, modified) VALUES(?, ?, ?, ?)", key, content,
               toInteger(size), currentTime())
        .run();
    if (former) {
        dropContent(connection, former->content);
    }
}

void copyObject(Connection& connection, const std::string& from, const std::string& fromVersion, const std::string& to,
                const ExpectedObject& expected) {
    const StoredObject object = getExistingObject(connection, from, fromVersion);
    requireExpected(connection, to, expected, '"' + to + '"');
    const std::int64_t copy = shareContent(connection, object.content, 0, object.size);
    connection
        .query(
            "INSERT INTO part(content, number, position, size, tag)"
            " SELECT ?1, number, position, size, tag FROM part WHERE content = ?2",
            copy, object.content)
        .run();
    replaceObject(connection, to, copy, object.size);
}

void removeObject(Connection& connection, const std::string& key, const std::string& version) {
    const StoredObject object = getExistingObject(connection, key, version);
    connection.query("DELETE FROM object WHERE key = ?", key).run();
    dropContent(connection, object.content);
}

std::optional<ObjectDescription> describeObject(Connection& connection, const std::string& key) {
    const std::optional<StoredObject> object = findObject(connection, key);
    if (!object) {
        return std::nullopt;
    }
    std::vector<PartInfo> parts = getUploadedParts(connection, object->content);
    if (parts.empty()) {
        parts = makeUniformParts(*object);
    }
    return ObjectDescription{makeVersion(object->content), std::move(parts)};
}

bool hasPart(Connection& connection, const StoredObject& object, const PartInfo& part) {
    // Uploaded parts never have such a tag, so the first answer needs no look at how the object was stored.
    const PartInfo uniform = makeUniformPart(object, part.Offset / kUniformPartSize);
    if (part.Tag == uniform.Tag) {
        return part.Offset == uniform.Offset && part.Size == uniform.Size;
    }
    return connection
        .query("SELECT 1 FROM part WHERE content = ? AND position = ? AND size = ? AND tag = ?", object.content,
               toInteger(part.Offset), toInteger(part.Size), part.Tag)
        .next();
}

}  // namespace storage::cloudprovider::sqlite
