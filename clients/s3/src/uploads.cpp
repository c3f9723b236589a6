// SPDX-License-Identifier: Apache-2.0
#include "uploads.hpp"

#include "Download.hpp"
#include "descriptions.hpp"
#include "digests.hpp"
#include "limits.hpp"
#include "objects.hpp"
#include "text.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <algorithm>
#include <chrono>
#include <istream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace storage::cloudprovider::s3 {

using boost::posix_time::milliseconds;

namespace {

// Headers tell the time in seconds.
const boost::posix_time::seconds kClockStep(2);
constexpr const char* kNameMark = "cp1:";

std::string etagOfTag(const std::string& tag) {
    const auto quote = tag.find('"');
    return quote == std::string::npos || tag.back() != '"' ? tag : tag.substr(0, quote);
}

S3Request partRequest(Bucket& bucket, const std::string& key, const UploadName& upload, const PartInfo& part) {
    auto request = bucket.request("PUT", key);
    request.Query = {{"partNumber", std::to_string(part.Index + 1)}, {"uploadId", upload.StoreId}};
    return request;
}

std::string fetchAndSend(Bucket& bucket, const std::string& from, const std::string& version, const std::string& key,
                         const std::string& uploadId, const PartInfo& piece) {
    std::stringstream bytes;
    Download(bucket, from, version, bytes).getRange(piece.Offset, piece.Size);
    return sendPart(bucket, key, uploadId, piece, bytes);
}

std::string copyInStore(Bucket& bucket, const std::string& from, const std::string& version, const std::string& key,
                        const std::string& uploadId, const PartInfo& piece) {
    const auto upload = UploadName::parse(uploadId);
    const auto etag = bucket.copyFrom(from, version, Bucket::Copied::Part, [&](const Fields& conditions) {
        auto request = partRequest(bucket, key, upload, piece);
        request.Headers = conditions;
        request.Headers.emplace_back("x-amz-copy-source", bucket.copySource(from));
        request.Headers.emplace_back("x-amz-copy-source-range", "bytes=" + std::to_string(piece.Offset) + '-' +
                                                                    std::to_string(piece.Offset + piece.Size - 1));
        request.Expected = S3Request::Answer::Xml;
        request.IsSlow = true;
        return toVersion(readElement(bucket.wire().send(std::move(request)).Http.Body, "ETag"));
    });
    return makeTag(etag, upload.Base);
}

// Small pieces at an object's start travel: the object may be so small that its ranges cannot be copied. Of one that
// ends right there only the store knows whether there is more after it.
std::string copyPiece(Bucket& bucket, const std::string& from, const std::string& version, const std::string& key,
                      const std::string& uploadId, const PartInfo& piece) {
    const auto end = piece.Offset + piece.Size;
    if (end >= kSmallestPart) {
        try {
            return copyInStore(bucket, from, version, key, uploadId, piece);
        } catch (const S3Failure& failure) {
            if (end > kSmallestPart || !failure.hasStatus(400)) {
                throw;
            }
        }
    }
    return fetchAndSend(bucket, from, version, key, uploadId, piece);
}

// Neighbours together, each piece named by its first part.
std::vector<PartInfo> joinParts(const std::vector<PartInfo>& run) {
    std::vector<PartInfo> pieces;
    for (const auto& part : run) {
        if (pieces.empty() || pieces.back().Size + part.Size > kLargestPart) {
            pieces.push_back({part.Index, part.Offset, 0, {}});
        }
        pieces.back().Size += part.Size;
    }
    return pieces;
}

// Whoever asks for the page that was just answered would go on for ever.
void requireProgress(const std::string& place, const std::string& nextPlace) {
    if (!nextPlace.empty() && nextPlace == place) {
        throw std::runtime_error("the listing does not get on");
    }
}

// Nothing when the upload has gone meanwhile.
std::optional<std::uint64_t> sizeOfUpload(Bucket& bucket, const UnfinishedUpload& upload) {
    std::uint64_t size = 0;
    std::string marker;
    do {
        auto request = bucket.request("GET", upload.Key);
        request.Query = {{"uploadId", upload.UploadId}};
        request.Expected = S3Request::Answer::Xml;
        if (!marker.empty()) {
            request.Query.emplace_back("part-number-marker", marker);
        }
        try {
            const auto page = readParts(bucket.wire().send(std::move(request)).Http.Body);
            size += page.Size;
            requireProgress(marker, page.Marker);
            marker = page.Marker;
        } catch (const S3Failure& failure) {
            if (!failure.hasStatus(404)) {
                throw;
            }
            return std::nullopt;
        }
    } while (!marker.empty());
    return size;
}

// Ceph's gateway drops the tags that an upload was begun with. Their return is not part of the version.
void restoreTags(Bucket& bucket, const std::string& key, const std::string& version, const Tags& tags) {
    const auto stored = tags.empty() ? std::nullopt : bucket.head(key);
    if (!stored || stored->Version != version || stored->Attributes.TagCount != 0) {
        return;
    }
    auto request = bucket.request("PUT", key);
    request.Query = {{"tagging", ""}};
    request.Headers = {{"Content-Type", "application/xml"}};
    request.Body = writeTags(tags);
    request.NeedsDigest = true;
    bucket.wire().send(std::move(request));
}

// Some gateways encode keys here without saying so: where there is no such upload, the key is decoded.
std::optional<UnfinishedUpload> measureUpload(Bucket& bucket, const UnfinishedUpload& listed) {
    auto upload = listed;
    upload.Key = bucket.ownKey(listed.Key);
    auto size = sizeOfUpload(bucket, upload);
    if (const auto decoded = percentDecode(upload.Key); !size && decoded != upload.Key) {
        upload.Key = decoded;
        size = sizeOfUpload(bucket, upload);
    }
    upload.Size = size.value_or(0);
    return size ? std::optional(upload) : std::nullopt;
}

void abortStored(Bucket& bucket, const std::string& key, const std::string& storeId) {
    auto request = bucket.request("DELETE", key);
    request.Query = {{"uploadId", storeId}};
    try {
        bucket.wire().send(std::move(request));
    } catch (const S3Failure& failure) {
        if (!failure.hasStatus(404) || failure.hasCode("NoSuchBucket")) {
            throw;
        }
    }
}

// End what was begun when an answer was lost: an upload of the key from just then that still has no part. Those of
// others have got theirs by now.
void dropLost(Bucket& bucket, const std::string& key, const ObjectMemory::Upload& made) {
    if (!made.LostBeginning) {
        return;
    }
    try {
        std::string token;
        do {
            for (const auto& upload : listUploads(bucket, key, token)) {
                if (upload.Key == key && upload.Size == 0 && made.LostBeginning->contains(upload.Started)) {
                    abortStored(bucket, key, upload.UploadId);
                }
            }
        } while (!token.empty());
    } catch (const S3Failure&) {  // it stays for the store's rules, or for whoever lists uploads
    } catch (const std::runtime_error&) {
    }
}

}  // namespace

std::string makeTag(const std::string& partEtag, const std::string& version) {
    return version.empty() ? partEtag : partEtag + '"' + version + '"';
}

std::string versionOfTag(const std::string& tag) {
    const auto quote = tag.find('"');
    const bool hasVersion = quote != std::string::npos && tag.size() > quote + 1 && tag.back() == '"';
    return hasVersion ? tag.substr(quote + 1, tag.size() - quote - 2) : std::string();
}

UploadName UploadName::parse(const std::string& id) {
    const std::string_view mark = kNameMark;
    const auto writeEnd = id.find(':', mark.size());
    const auto baseEnd = writeEnd == std::string::npos ? writeEnd : id.find(':', writeEnd + 1);
    if (!id.starts_with(mark) || baseEnd == std::string::npos) {
        return {id, {}, {}};
    }
    return {id.substr(baseEnd + 1), id.substr(mark.size(), writeEnd - mark.size()),
            percentDecode(id.substr(writeEnd + 1, baseEnd - writeEnd - 1))};
}

std::string UploadName::toString() const {
    return kNameMark + WriteId + ':' + percentEncode(Base, Slash::Encode) + ':' + StoreId;
}

std::string startUpload(Bucket& bucket, const std::string& key, const ObjectAttributes& attributes, const Tags& tags,
                        const std::string& base) {
    UploadName upload{{}, makeRandomId(), base};
    auto request = bucket.request("POST", key);
    request.Query = {{"uploads", ""}};
    request.Headers = makeStoringHeaders(attributes, tags, upload.WriteId);
    request.Expected = S3Request::Answer::Xml;
    const auto start = std::chrono::steady_clock::now();
    const auto answer = bucket.wire().send(std::move(request));
    upload.StoreId = readElement(answer.Http.Body, "UploadId");
    if (upload.StoreId.empty()) {
        throw std::runtime_error("the answer names no upload");
    }
    ObjectMemory::Upload made{attributesAfter(attributes, upload.WriteId), tags};
    const auto now = toTime(answer.Http.header("date"));
    if (answer.MayHaveHappenedBefore && !now.is_special()) {
        const auto took =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        made.LostBeginning.emplace(now - milliseconds(took.count()) - kClockStep, now + kClockStep);
    }
    bucket.memory().beginUpload(upload.WriteId, std::move(made));
    return upload.toString();
}

std::string sendPart(Bucket& bucket, const std::string& key, const std::string& uploadId, const PartInfo& part,
                     std::istream& data) {
    const auto upload = UploadName::parse(uploadId);
    auto request = partRequest(bucket, key, upload, part);
    request.Data = &data;
    request.Size = part.Size;
    const auto etag = toVersion(bucket.wire().send(std::move(request)).Http.header("etag"));
    if (etag.empty()) {
        throw std::runtime_error("the answer has no ETag of the part");
    }
    return makeTag(etag, upload.Base);
}

std::vector<PartInfo> copyParts(Bucket& bucket, const std::string& from, const std::string& version,
                                const std::string& key, const std::string& uploadId, const std::vector<PartInfo>& run) {
    auto pieces = joinParts(run);
    for (auto& piece : pieces) {
        piece.Tag = copyPiece(bucket, from, version, key, uploadId, piece);
    }
    return pieces;
}

std::string completeUpload(Bucket& bucket, const std::string& key, const std::string& uploadId,
                           std::vector<PartInfo> parts, const ExpectedObject& expected) {
    const auto upload = UploadName::parse(uploadId);
    bucket.memory().beginCompletion(key, {upload.WriteId, parts});
    for (auto& part : parts) {
        part.Tag = etagOfTag(part.Tag);
    }
    const auto send = [&, body = writeCompletion(parts)](const Fields& conditions) {
        auto request = bucket.request("POST", key);
        request.Query = {{"uploadId", upload.StoreId}};
        request.Headers = conditions;
        request.Headers.emplace_back("Content-Type", "application/xml");
        request.Body = body;
        request.Expected = S3Request::Answer::Xml;
        request.IsSlow = true;
        return toVersion(readElement(bucket.wire().send(std::move(request)).Http.Body, "ETag"));
    };
    const bool looksFirst = !bucket.honoursAllConditions();
    try {
        auto version = bucket.replace({key, upload.WriteId, expected, Conditions::Write::Complete, looksFirst, send});
        if (const auto made = bucket.memory().endUpload(upload.WriteId)) {
            restoreTags(bucket, key, version, made->ObjectTags);
            dropLost(bucket, key, *made);
            bucket.memory().see(key, {version, made->Attributes, true});
        }
        bucket.memory().settleCompletion(key);
        return version;
    } catch (const ObjectChanged&) {
        bucket.memory().settleCompletion(key);
        throw;
    }
}

void abortUpload(Bucket& bucket, const std::string& key, const std::string& uploadId) {
    const auto upload = UploadName::parse(uploadId);
    abortStored(bucket, key, upload.StoreId);
    if (const auto made = bucket.memory().endUpload(upload.WriteId)) {
        dropLost(bucket, key, *made);
    }
}

void copyInParts(Bucket& bucket, const std::string& from, const ObjectHead& source, const std::string& to,
                 const ExpectedObject& expected) {
    const auto uploadId = startUpload(bucket, to, source.Attributes, bucket.tagsOf(from, source.Attributes), {});
    try {
        // As many pieces as there are parts of 5 GiB, the most that each may have.
        const auto parts =
            copyParts(bucket, from, source.Version, to, uploadId, uniformParts(source.Size, kLargestPart / 8, {}));
        if (!bucket.honoursAllConditions() && !source.Version.empty()) {
            bucket.requireSource(from, source.Version);
        }
        completeUpload(bucket, to, uploadId, parts, expected);
    } catch (...) {
        try {
            abortUpload(bucket, to, uploadId);
        } catch (const std::exception&) {  // the first failure counts; the store's rules for old uploads apply
        }
        throw;
    }
}

std::vector<UnfinishedUpload> listUploads(Bucket& bucket, const std::string& prefix, std::string& token) {
    auto request = bucket.request("GET", {});
    request.Query = {{"uploads", ""}, {"prefix", bucket.fullKey(prefix)}, {"encoding-type", "url"}};
    request.Expected = S3Request::Answer::Xml;
    if (!token.empty()) {
        const auto border = token.find('&');
        request.Query.emplace_back("key-marker", percentDecode(token.substr(0, border)));
        request.Query.emplace_back("upload-id-marker", percentDecode(token.substr(border + 1)));
    }
    const auto page = readUploads(bucket.wire().send(std::move(request)).Http.Body);
    std::vector<UnfinishedUpload> uploads;
    for (const auto& upload : page.Uploads) {
        if (auto measured = measureUpload(bucket, upload)) {
            uploads.push_back(*std::move(measured));
        }
    }
    std::stable_sort(uploads.begin(), uploads.end(),
                     [](const UnfinishedUpload& left, const UnfinishedUpload& right) { return left.Key < right.Key; });
    const bool isLast = page.KeyMarker.empty() && page.IdMarker.empty();
    auto next = isLast
                    ? std::string()
                    : percentEncode(page.KeyMarker, Slash::Encode) + '&' + percentEncode(page.IdMarker, Slash::Encode);
    requireProgress(token, next);
    token = std::move(next);
    return uploads;
}

}  // namespace storage::cloudprovider::s3
