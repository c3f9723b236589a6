// SPDX-License-Identifier: Apache-2.0
#include "uploads.hpp"

#include "contents.hpp"
#include "errors.hpp"
#include "objects.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>

namespace storage::cloudprovider::sqlite {

namespace {

constexpr std::chrono::microseconds kAbandonedAfter = std::chrono::hours(24);

// A part as it was sent; its tag is the number of its content, which no other part ever has.
struct SentPart {
    std::int64_t content;
    std::uint64_t size;
};

std::string makeTag(std::int64_t content) {
    return std::to_string(content);
}

std::int64_t findUpload(Connection& connection, const std::string& key, const std::string& uploadId) {
    std::int64_t upload = 0;
    const char* const end = uploadId.data() + uploadId.size();
    const auto [rest, error] = std::from_chars(uploadId.data(), end, upload);
    if (error == std::errc() && rest == end) {
        Query row = connection.query("SELECT key FROM upload WHERE id = ?", upload);
        if (row.next() && row.getBytes(0) == key) {
            return upload;
        }
    }
    throw StoreFailure("there is no upload \"" + uploadId + "\" of \"" + key + '"');
}

std::optional<SentPart> findPart(Connection& connection, std::int64_t upload, std::uint64_t index) {
    Query row = connection.query("SELECT content, size FROM upload_part WHERE upload = ? AND number = ?", upload,
                                 toInteger(index));
    return row.next() ? std::optional(SentPart{row.getInteger(0), toSize(row.getInteger(1))}) : std::nullopt;
}

// Note a content as the part of that index, in place of what was sent before.
std::string keepPart(Connection& connection, std::int64_t upload, const PartInfo& part, std::int64_t content) {
    const std::optional<SentPart> former = findPart(connection, upload, part.Index);
    connection
        .query("INSERT OR REPLACE INTO upload_part(upload, number, content, size) VALUES(?, ?, ?, ?)", upload,
               toInteger(part.Index), content, toInteger(part.Size))
        .run();
    connection.query("UPDATE upload SET touched = ?2 WHERE id = ?1", upload, currentTime()).run();
    if (former) {
        dropContent(connection, former->content);
    }
    return makeTag(content);
}

// Remove an upload with the parts that it still has.
void dropUpload(Connection& connection, std::int64_t upload) {
    {
        Query rows = connection.query("SELECT content FROM upload_part WHERE upload = ?", upload);
        while (rows.next()) {
            dropContent(connection, rows.getInteger(0));
        }
    }
    connection.query("DELETE FROM upload_part WHERE upload = ?", upload).run();
    connection.query("DELETE FROM upload WHERE id = ?", upload).run();
}

// Take a part out of its upload and append it to the object in the making.
void takePart(Connection& connection, std::int64_t upload, const PartInfo& part, std::int64_t target,
              std::uint64_t position) {
    const std::optional<SentPart> sent = findPart(connection, upload, part.Index);
    if (!sent || makeTag(sent->content) != part.Tag || sent->size != part.Size) {
        throw StoreFailure("part " + std::to_string(part.Index) + " of " + std::to_string(part.Size) +
                           " bytes with the tag \"" + part.Tag + "\" was not sent");
    }
    moveContent(connection, sent->content, target, position);
    connection
        .query("INSERT INTO part(content, number, position, size, tag) VALUES(?, ?, ?, ?, ?)", target,
               toInteger(part.Index), toInteger(position), toInteger(part.Size), part.Tag)
        .run();
    connection.query("DELETE FROM upload_part WHERE upload = ? AND number = ?", upload, toInteger(part.Index)).run();
}

std::int64_t findAbandoned(Connection& connection) {
    Query row = connection.query("SELECT id FROM upload WHERE touched < ? LIMIT 1",
                                 currentTime() - std::int64_t{kAbandonedAfter.count()});
    return row.next() ? row.getInteger(0) : 0;
}

}  // namespace

std::string startUpload(Connection& connection, const std::string& key) {
    const std::int64_t upload = newNumber(connection);
    connection.query("INSERT INTO upload(id, key, touched) VALUES(?, ?, ?)", upload, key, currentTime()).run();
    return std::to_string(upload);
}

std::string sendPart(Connection& connection, const std::string& key, const std::string& uploadId, const PartInfo& part,
                     std::istream& data) {
    const std::int64_t upload = findUpload(connection, key, uploadId);
    return keepPart(connection, upload, part, writeContent(connection, data, part.Size));
}

std::vector<PartInfo> copyStoredParts(Connection& connection, const std::string& key, const std::string& uploadId,
                                      std::vector<PartInfo> parts, const std::string& version) {
    const std::int64_t upload = findUpload(connection, key, uploadId);
    const StoredObject object = getExistingObject(connection, key, version);
    for (PartInfo& part : parts) {
        requireRange(object, part.Offset, part.Size);
        if (version.empty() && !part.Tag.empty() && !hasPart(connection, object, part)) {
            throw StoreFailure("the object was replaced meanwhile");
        }
        part.Tag = keepPart(connection, upload, part, shareContent(connection, object.content, part.Offset, part.Size));
    }
    return parts;
}

void abortUpload(Connection& connection, const std::string& key, const std::string& uploadId) {
    dropUpload(connection, findUpload(connection, key, uploadId));
}

std::int64_t completeUpload(Connection& connection, const std::string& key, const std::string& uploadId,
                            const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    const std::int64_t upload = findUpload(connection, key, uploadId);
    requireExpected(connection, key, expected);
    if (parts.empty()) {
        throw StoreFailure("an upload cannot be completed without parts");
    }
    const std::int64_t content = newNumber(connection);
    std::uint64_t size = 0;
    for (std::size_t at = 0; at < parts.size(); ++at) {
        if (at > 0 && parts[at].Index <= parts[at - 1].Index) {
            throw StoreFailure("part " + std::to_string(parts[at].Index) + " follows part " +
                               std::to_string(parts[at - 1].Index));
        }
        takePart(connection, upload, parts[at], content, size);
        size += parts[at].Size;
    }
    replaceObject(connection, key, content, size);
    dropUpload(connection, upload);
    return content;
}

// A token is the last upload's id, a blank and its key.
std::vector<UnfinishedUpload> listUploads(Connection& connection, const std::string& prefix, std::string& token) {
    constexpr std::size_t kMaxPageSize = 1000;
    const auto blank = std::min(token.find(' '), token.size());
    std::int64_t lastId = 0;
    const auto [rest, error] = std::from_chars(token.data(), token.data() + blank, lastId);
    if (!token.empty() && (error != std::errc() || blank == token.size())) {
        throw StoreFailure("the token does not continue a listing of uploads");
    }
    const auto lastKey = token.empty() ? std::string() : token.substr(blank + 1);
    Query rows = connection.query(
        "SELECT id, key, touched, (SELECT coalesce(sum(size), 0) FROM upload_part WHERE upload = id) FROM upload "
        "WHERE substr(key, 1, length(?1)) = ?1 AND (key, id) > (?2, ?3) ORDER BY key, id",
        prefix, lastKey, lastId);
    std::vector<UnfinishedUpload> uploads;
    token.clear();
    while (rows.next()) {
        if (uploads.size() == kMaxPageSize) {
            token = uploads.back().UploadId + ' ' + uploads.back().Key;
            break;
        }
        uploads.push_back({std::string(rows.getBytes(1)), std::to_string(rows.getInteger(0)),
                           toTime(rows.getInteger(2)), toSize(rows.getInteger(3))});
    }
    return uploads;
}

bool hasAbandonedUploads(Connection& connection) {
    return findAbandoned(connection) != 0;
}

void dropAbandonedUpload(Connection& connection) {
    if (const std::int64_t upload = findAbandoned(connection)) {
        dropUpload(connection, upload);
    }
}

}  // namespace storage::cloudprovider::sqlite
