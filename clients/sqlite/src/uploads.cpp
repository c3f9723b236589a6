// SPDX-License-Identifier: Apache-2.0
#include "uploads.hpp"

#include "checksums.hpp"
#include "contents.hpp"
#include "errors.hpp"
#include "objects.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

namespace storage::cloudprovider::sqlite {

namespace {

constexpr std::chrono::microseconds kAbandonedAfter = std::chrono::hours(24);

// The time of an upload's last part once somebody has begun to remove it.
constexpr std::int64_t kGivenUp = 0;

// Slices, and parts, that a transaction removes: of chunks, 64 MiB, which others who write wait for.
constexpr std::size_t kMostDropped = 64;

// A part as it was sent; its tag is the number of its content, which no other part ever has.
struct SentPart {
    std::int64_t content;
    std::uint64_t size;
};

std::string makeTag(std::int64_t content) {
    return std::to_string(content);
}

std::int64_t sumUpload(std::int64_t upload, std::string_view key, std::int64_t touched) {
    return sumRow(Table::Uploads, upload, key, touched);
}

std::int64_t sumSentPart(std::int64_t upload, std::int64_t number, std::int64_t content, std::int64_t size) {
    return sumRow(Table::SentParts, upload, number, content, size);
}

// Whether the current row, of id, key, touched, sum, is as it was written.
bool isSound(const Query& upload) {
    return upload.getInteger(3) == sumUpload(upload.getInteger(0), upload.getBytes(1), upload.getInteger(2));
}

void requireSound(const Query& upload) {
    if (!isSound(upload)) {
        throwDamaged("the row of the upload " + std::to_string(upload.getInteger(0)) + " of \"" +
                     std::string(upload.getBytes(1)) + "\" is not as it was written");
    }
}

// The same of a row of number, content, size, sum.
bool isSoundPart(const Query& part, std::int64_t upload) {
    return part.getInteger(3) == sumSentPart(upload, part.getInteger(0), part.getInteger(1), part.getInteger(2));
}

SentPart getSentPart(const Query& row, std::int64_t upload) {
    if (!isSoundPart(row, upload)) {
        throwDamaged("part " + std::to_string(row.getInteger(0)) + " of the upload " + std::to_string(upload) +
                     " is not as it was written");
    }
    return {row.getInteger(1), toSize(row.getInteger(2))};
}

std::int64_t findUpload(Connection& connection, const std::string& key, const std::string& uploadId) {
    std::int64_t upload = 0;
    const char* const end = uploadId.data() + uploadId.size();
    const auto [rest, error] = std::from_chars(uploadId.data(), end, upload);
    if (error == std::errc() && rest == end) {
        Query row = connection.query("SELECT id, key, touched, sum FROM uploads WHERE id = ?", upload);
        if (row.next()) {
            requireSound(row);
            if (row.getBytes(1) == key && row.getInteger(2) != kGivenUp) {
                return upload;
            }
        }
    }
    throw StoreFailure("there is no upload \"" + uploadId + "\" of \"" + key + '"');
}

std::optional<SentPart> findPart(Connection& connection, std::int64_t upload, std::uint64_t index) {
    Query row = connection.query("SELECT number, content, size, sum FROM sent_parts WHERE upload = ? AND number = ?",
                                 upload, toInteger(index));
    return row.next() ? std::optional(getSentPart(row, upload)) : std::nullopt;
}

void touch(Connection& connection, std::int64_t upload, std::string_view key, std::int64_t touched) {
    connection
        .query("UPDATE uploads SET touched = ?2, sum = ?3 WHERE id = ?1", upload, touched,
               sumUpload(upload, key, touched))
        .run();
}

// Note a content as the part of that index, in place of what was sent before.
std::string keepPart(Connection& connection, std::int64_t upload, const std::string& key, const PartInfo& part,
                     std::int64_t content) {
    const std::optional<SentPart> former = findPart(connection, upload, part.Index);
    insertSentPart(connection, upload, toInteger(part.Index), content, toInteger(part.Size));
    touch(connection, upload, key, currentTime());
    if (former) {
        dropContent(connection, former->content);
    }
    return makeTag(content);
}

std::uint64_t getSentSize(Connection& connection, std::int64_t upload) {
    Query rows = connection.query("SELECT number, content, size, sum FROM sent_parts WHERE upload = ?", upload);
    std::uint64_t size = 0;
    while (rows.next()) {
        size += getSentPart(rows, upload).size;
    }
    return size;
}

struct DroppedPart {
    std::int64_t number;
    std::optional<std::int64_t> content;  // what a damaged row names may be somebody else's
};

std::optional<DroppedPart> findFirstPart(Connection& connection, std::int64_t upload) {
    Query row = connection.query(
        "SELECT number, content, size, sum FROM sent_parts WHERE upload = ? ORDER BY number LIMIT 1", upload);
    if (!row.next()) {
        return std::nullopt;
    }
    return DroppedPart{row.getInteger(0), isSoundPart(row, upload) ? std::optional(row.getInteger(1)) : std::nullopt};
}

void dropRow(Connection& connection, std::int64_t upload) {
    connection.query("DELETE FROM uploads WHERE id = ?", upload).run();
}

// Remove some of the parts that an upload still has, or some of a part's bytes, and the upload when nothing is left.
// Result: whether something is.
bool dropSome(Connection& connection, std::int64_t upload) {
    for (std::size_t left = kMostDropped; left > 0; --left) {
        const std::optional<DroppedPart> part = findFirstPart(connection, upload);
        if (!part) {
            dropRow(connection, upload);
            return false;
        }
        const std::size_t dropped = part->content ? dropSlices(connection, *part->content, left) : 0;
        if (dropped == left) {
            return true;
        }
        left -= dropped;
        if (!connection.change("DELETE FROM sent_parts WHERE upload = ? AND number = ?", upload, part->number)) {
            // Damage has put the rows out of their order, so that none is found by its number.
            connection.query("DELETE FROM sent_parts WHERE upload = ?", upload).run();
            dropRow(connection, upload);
            return false;
        }
    }
    return true;
}

// Remove an upload, or as much of it as one transaction may; then it is of no use any more, and is as good as
// abandoned. Result: whether something is left.
bool giveUp(Connection& connection, std::int64_t upload, std::string_view key) {
    const bool isLeft = dropSome(connection, upload);
    if (isLeft) {
        touch(connection, upload, key, kGivenUp);
    }
    return isLeft;
}

// Take a part out of its upload and append it to the object in the making.
void takePart(Connection& connection, std::int64_t upload, const PartInfo& part, std::int64_t target,
              std::uint64_t position) {
    const std::optional<SentPart> sent = findPart(connection, upload, part.Index);
    if (!sent || makeTag(sent->content) != part.Tag || sent->size != part.Size) {
        throw StoreFailure("part " + std::to_string(part.Index) + " of " + std::to_string(part.Size) +
                           " bytes with the tag \"" + part.Tag + "\" was not sent");
    }
    moveContent(connection, sent->content, sent->size, target, position);
    notePart(connection, target, {part.Index, position, part.Size, part.Tag});
    connection.query("DELETE FROM sent_parts WHERE upload = ? AND number = ?", upload, toInteger(part.Index)).run();
}

// An upload that is given up, or nobody sent anything to for a day. One whose row is damaged is none: nobody knows how
// old it is.
struct AbandonedUpload {
    std::int64_t number;
    std::string key;
};

std::optional<AbandonedUpload> findAbandoned(Connection& connection) {
    Query rows = connection.query("SELECT id, key, touched, sum FROM uploads WHERE touched < ?",
                                  currentTime() - std::int64_t{kAbandonedAfter.count()});
    while (rows.next()) {
        if (isSound(rows)) {
            return AbandonedUpload{rows.getInteger(0), std::string(rows.getBytes(1))};
        }
    }
    return std::nullopt;
}

}  // namespace

void insertUpload(Connection& connection, std::int64_t upload, std::string_view key, std::int64_t touched) {
    connection
        .query("INSERT INTO uploads(id, key, touched, sum) VALUES(?, ?, ?, ?)", upload, key, touched,
               sumUpload(upload, key, touched))
        .run();
}

void insertSentPart(Connection& connection, std::int64_t upload, std::int64_t number, std::int64_t content,
                    std::int64_t size) {
    connection
        .query("INSERT OR REPLACE INTO sent_parts(upload, number, content, size, sum) VALUES(?, ?, ?, ?, ?)", upload,
               number, content, size, sumSentPart(upload, number, content, size))
        .run();
}

std::string startUpload(Connection& connection, const std::string& key) {
    const std::int64_t upload = newNumber(connection);
    insertUpload(connection, upload, key, currentTime());
    return std::to_string(upload);
}

std::string sendPart(Connection& connection, const std::string& key, const std::string& uploadId, const PartInfo& part,
                     std::istream& data) {
    const std::int64_t upload = findUpload(connection, key, uploadId);
    return keepPart(connection, upload, key, part, writeContent(connection, data, part.Size));
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
        part.Tag =
            keepPart(connection, upload, key, part, shareContent(connection, object.content, part.Offset, part.Size));
    }
    return parts;
}

bool abortUpload(Connection& connection, const std::string& key, const std::string& uploadId) {
    return giveUp(connection, findUpload(connection, key, uploadId), key);
}

CompletedUpload completeUpload(Connection& connection, const std::string& key, const std::string& uploadId,
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
    const bool isFormerLeft = replaceObject(connection, key, content, size, toInteger(parts.size()));
    const bool isUploadLeft = giveUp(connection, upload, key);
    return {content, isFormerLeft || isUploadLeft};
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
        "SELECT id, key, touched, sum FROM uploads WHERE substr(key, 1, length(?1)) = ?1 AND (key, id) > (?2, ?3) "
        "AND touched <> ?4 ORDER BY key, id",
        prefix, lastKey, lastId, kGivenUp);
    std::vector<UnfinishedUpload> uploads;
    token.clear();
    while (rows.next()) {
        if (uploads.size() == kMaxPageSize) {
            token = uploads.back().UploadId + ' ' + uploads.back().Key;
            break;
        }
        requireSound(rows);
        const std::int64_t upload = rows.getInteger(0);
        uploads.push_back({std::string(rows.getBytes(1)), std::to_string(upload), toTime(rows.getInteger(2)),
                           getSentSize(connection, upload)});
    }
    return uploads;
}

std::int64_t findUploadBehind(Connection& connection, std::int64_t after) {
    Query row = connection.query("SELECT id FROM uploads WHERE id > ? ORDER BY id LIMIT 1", after);
    return row.next() ? row.getInteger(0) : -1;
}

void readUpload(Connection& connection, std::int64_t upload, std::ostream& sink) {
    {
        Query row = connection.query("SELECT id, key, touched, sum FROM uploads WHERE id = ?", upload);
        if (row.next()) {
            requireSound(row);
            if (row.getInteger(2) == kGivenUp) {
                return;  // some of its bytes are gone
            }
        }
    }
    Query rows = connection.query("SELECT number, content, size, sum FROM sent_parts WHERE upload = ?", upload);
    while (rows.next()) {
        const SentPart part = getSentPart(rows, upload);
        readContent(connection, part.content, 0, part.size, sink);
    }
}

// The upload has the content's number: both are of one kind, of which none is given twice.
bool discardContent(Connection& connection, std::string_view key, std::int64_t content) {
    const bool isLeft = dropSlices(connection, content, kMostDropped) == kMostDropped;
    if (isLeft) {
        insertUpload(connection, content, key, kGivenUp);
        insertSentPart(connection, content, 0, content, 0);
    }
    dropParts(connection, content);
    return isLeft;
}

bool hasAbandonedUploads(Connection& connection) {
    return findAbandoned(connection).has_value();
}

bool dropAbandonedUpload(Connection& connection) {
    const std::optional<AbandonedUpload> upload = findAbandoned(connection);
    if (!upload) {
        return false;
    }
    giveUp(connection, upload->number, upload->key);
    return true;
}

}  // namespace storage::cloudprovider::sqlite
