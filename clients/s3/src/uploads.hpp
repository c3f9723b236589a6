// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bucket.hpp"

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace storage::cloudprovider::s3 {

/// Parts' tags as this client gives them: the part's ETag, and in quotes after it the version of the object that the
/// upload is an edit of. A described part has no ETag of its own, only the version that it is a part of.
std::string makeTag(const std::string& partEtag, const std::string& version);
/// The version that a tag has; empty: none.
std::string versionOfTag(const std::string& tag);

/// An upload as this client names it: the store's id, the id of the write that it is, and what it is an edit of. One
/// that another client began has the store's id alone.
struct UploadName {
    std::string StoreId;
    std::string WriteId;
    std::string Base;  ///< version of the object that is edited; empty: a new object

    static UploadName parse(const std::string& id);
    std::string toString() const;
};

/// Begin an upload; answers its name.
///
/// Values   attributes: to be kept. base: as in UploadName.
std::string startUpload(Bucket& bucket, const std::string& key, const ObjectAttributes& attributes, const Tags& tags,
                        const std::string& base);

/// Send a part; answers its tag.
std::string sendPart(Bucket& bucket, const std::string& key, const std::string& uploadId, const PartInfo& part,
                     std::istream& data);

/// Take a run of neighbouring parts from a stored object, in as few pieces as the store allows; answers their records.
std::vector<PartInfo> copyParts(Bucket& bucket, const std::string& from, const std::string& version,
                                const std::string& key, const std::string& uploadId, const std::vector<PartInfo>& run);

/// Make an upload the object; answers its version. An outcome that stays unknown is remembered.
std::string completeUpload(Bucket& bucket, const std::string& key, const std::string& uploadId,
                           std::vector<PartInfo> parts, const ExpectedObject& expected);

/// Give an upload up. One that is gone is no error.
void abortUpload(Bucket& bucket, const std::string& key, const std::string& uploadId);

/// Copy an object that is too large for one go.
void copyInParts(Bucket& bucket, const std::string& from, const ObjectHead& source, const std::string& to,
                 const ExpectedObject& expected);

std::vector<UnfinishedUpload> listUploads(Bucket& bucket, const std::string& prefix, std::string& token);

}  // namespace storage::cloudprovider::s3
