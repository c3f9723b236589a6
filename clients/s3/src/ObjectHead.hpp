// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "HttpConnection.hpp"
#include "s3Xml.hpp"

#include <storage/cloudprovider/s3/S3Options.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace storage::cloudprovider::s3 {

/// What an object has besides its bytes: what an edit keeps, and who wrote it.
struct ObjectAttributes {
    /// Headers to store it with again: content type, encoding, language and disposition, caching, the user's metadata,
    /// storage class, encryption, redirect.
    Fields Kept;
    std::uint64_t TagCount = 0;
    std::string Unkeepable;  ///< what cannot be stored again; empty: nothing
    /// Ids of the writes that it is made of, the last one first: each edit adds its own to those of what it edits.
    /// That way a writer whose answer was lost finds its write even where others have gone on from it.
    std::vector<std::string> WriteIds;

    bool hasWrite(const std::string& id) const;
    bool isLastWrite(const std::string& id) const { return !WriteIds.empty() && WriteIds.front() == id; }
};

/// The answer to a HEAD, or what a GET answers besides bytes.
struct ObjectHead {
    std::string Version;
    std::uint64_t Size = 0;
    boost::posix_time::ptime LastModified;
    ObjectAttributes Attributes;
};

ObjectHead readHead(const HttpResponse& response);

/// What a new object is stored with.
ObjectAttributes newAttributes(const S3Options& options);

/// The headers to store an object with, as an edit of what has those attributes.
///
/// Values   tags: of the object; only their names and values.
Fields makeStoringHeaders(const ObjectAttributes& attributes, const Tags& tags, const std::string& writeId);

/// What the object has then.
ObjectAttributes attributesAfter(ObjectAttributes attributes, const std::string& writeId);

}  // namespace storage::cloudprovider::s3
