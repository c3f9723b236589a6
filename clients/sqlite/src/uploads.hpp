// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Connection.hpp"

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

/// Multipart uploads, with the meaning that CloudClient gives them. All of it happens in the caller's
/// transaction.
///
/// Errors  StoreFailure when there is no such upload of that key. SQLite::Exception.
namespace storage::cloudprovider::sqlite {

/// Put the row of an upload that is not there yet, as it is.
void insertUpload(Connection& connection, std::int64_t upload, std::string_view key, std::int64_t touched);

/// Put the row of a part of an upload in place of the one of that number.
void insertSentPart(Connection& connection, std::int64_t upload, std::int64_t number, std::int64_t content,
                    std::int64_t size);

/// Result   the upload's id.
std::string startUpload(Connection& connection, const std::string& key);

/// Result   the part's tag.
std::string sendPart(Connection& connection, const std::string& key, const std::string& uploadId, const PartInfo& part,
                     std::istream& data);

/// Result   the parts with their new tags. Throws ObjectChanged when the version is not the stored one. An empty one
///          fits any object: then ResourceNotFoundException when there is none, StoreFailure when it has no part of a
///          given tag; an empty tag fits any.
std::vector<PartInfo> copyStoredParts(Connection& connection, const std::string& key, const std::string& uploadId,
                                      std::vector<PartInfo> parts, const std::string& version);

/// Give an upload up: nobody finds it any more. Its parts are removed if they are not too many for one transaction.
///
/// Result   whether some are left, to be removed as those of an abandoned upload.
bool abortUpload(Connection& connection, const std::string& key, const std::string& uploadId);

/// What has become of an upload.
struct CompletedUpload {
    std::int64_t content;  ///< of the object
    bool isSomethingLeft;  ///< to be removed as an abandoned upload
};

/// Make an upload the object of its key. Throws ObjectChanged when what is stored is not what is expected,
///          StoreFailure when the parts are none, not in order, or not as they were sent.
CompletedUpload completeUpload(Connection& connection, const std::string& key, const std::string& uploadId,
                               const std::vector<PartInfo>& parts, const ExpectedObject& expected);

/// One page of the uploads of keys that begin with prefix, as ExtendedCloudClient::listUploads. Started is when their
/// last part came.
std::vector<UnfinishedUpload> listUploads(Connection& connection, const std::string& prefix, std::string& token);

/// The first upload with a number above that one; -1 when there is none.
std::int64_t findUploadBehind(Connection& connection, std::int64_t after);

/// Write what was sent to an upload to sink, part by part. Throws StoreDamaged, which names the upload.
void readUpload(Connection& connection, std::int64_t upload, std::ostream& sink);

/// Remove the content of an object of that key that is no more. What is too much for one transaction is left as an
/// upload that was given up.
///
/// Result   whether something is left, to be removed as an abandoned upload.
bool discardContent(Connection& connection, std::string_view key, std::int64_t content);

/// Whether some upload had no activity for a day, or was given up and is not removed yet.
bool hasAbandonedUploads(Connection& connection);

/// Remove one of those uploads, or a part of it: not more than holds others who write up for some hundredths of a
/// second.
///
/// Result   false when there was none.
bool dropAbandonedUpload(Connection& connection);

}  // namespace storage::cloudprovider::sqlite
