// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/PartInfo.hpp>
#include <storage/cloudprovider/export.hpp>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// What a store tells about an object, or one entry of a listing.
struct ObjectInfo {
    std::string Key;                        ///< the full key
    std::uint64_t Size = 0;                 ///< in bytes; 0 for a common prefix
    boost::posix_time::ptime LastModified;  ///< UTC; not_a_date_time when unknown
};

/// How to list.
struct ListOptions {
    /// Empty: every object below the prefix. "/": keys that hold it behind the prefix are folded into one
    /// entry each, the common prefix up to and with the delimiter.
    std::string Delimiter;
    /// Most entries of a page; -1 leaves it to the store.
    std::int32_t MaxKeys = -1;
};

/// An object store, as whoever adapts one implements it: the only way from the provider to stored bytes.
///
/// Keys      UTF-8 without a leading "/"; a key that ends in "/" is a folder marker. Listings come in the order of the
///           keys' bytes. Upload ids and tags are the client's own texts; nobody else looks into them.
/// Content   an object is replaced as a whole by putObject and completeMultipartUpload: whoever reads meanwhile gets
///           the old object or the new one, never a mixture. Both are durable when the call returns.
/// Errors    a subclass of CloudException; anything else arrives at the host as an unknown failure.
/// Threads   every operation may be called by several threads at once.
class CLOUDPROVIDER_EXPORT CloudClient {
public:
    CloudClient() = default;
    CloudClient(const CloudClient&) = default;
    CloudClient& operator=(const CloudClient&) = default;

    /// Describe the object of exactly that key; nothing when there is none.
    virtual boost::optional<ObjectInfo> getObjectInfo(const std::string& key) = 0;

    /// Check that the store takes a file of that name.
    ///
    /// Values   the last component of the path, in UTF-8.
    /// Errors   InvalidLocationException when it does not.
    virtual void checkObjectName(const std::string& name) = 0;

    /// List one page of the objects whose keys begin with prefix.
    ///
    /// Values   token: empty for the first page, then as the previous call left it.
    /// Result   the entries in the order of their keys; a page may be empty while token is not. token is what
    ///          continues the listing, and empty after the last page.
    virtual std::vector<ObjectInfo> listObjects(const std::string& prefix, std::string& token,
                                                const ListOptions& options) = 0;

    /// Remove an object. A missing one may be an error (ResourceNotFoundException) or not, as the store has it.
    virtual void deleteObject(const std::string& key) = 0;

    /// Write an object's bytes from position first to last, both included, to sink.
    ///
    /// first = last = 0 means the whole object, however long it is; a caller that wants the first byte alone
    /// has to drop the rest. Throws ResourceNotFoundException when there is no such object.
    virtual void getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) = 0;

    /// Store an object in one go: the next size bytes of data, which is seekable.
    virtual void putObject(const std::string& key, std::istream& data, std::uint64_t size) = 0;

    /// Describe how a stored object is divided into parts, in order and without gaps. Empty when the object
    /// has a single part, or is not there.
    virtual std::vector<PartInfo> getObjectParts(const std::string& key) = 0;

    /// Begin a multipart upload; the stored object stays as it is until the upload completes.
    ///
    /// Values   lastTag: the tag of the object's first part as it was described, or of the part uploaded last; empty
    /// for
    ///          a new object, and for one that was stored since it was described.
    /// Result   the upload's id.
    virtual std::string startMultipartUpload(const std::string& key, const std::string& lastTag) = 0;

    /// Send one part. Sending an index again replaces what was sent before.
    ///
    /// Values   part.Index and part.Size count, its Tag does not; data is seekable and holds part.Size bytes.
    /// Result   the tag of what was stored.
    virtual std::string uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                   std::istream& data) = 0;

    /// Take a part from the bytes that the stored object holds at part.Offset, without sending them.
    ///
    /// Values   part.Tag: the tag that the stored part was described with, empty if it had none. A client that can tell
    ///          refuses it when the object was replaced since, rather than mix two versions.
    /// Result   the tag of the new part.
    virtual std::string copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) = 0;

    /// Give an upload and its parts up.
    virtual void abortMultipartUpload(const std::string& key, const std::string& uploadId) = 0;

    /// Make the parts, in order of their Index and each with the Tag that it got in this upload, the object. Indices
    /// may have gaps: parts without bytes are left out.
    virtual void completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                         const std::vector<PartInfo>& parts) = 0;

    virtual ~CloudClient();
};

}  // namespace storage::cloudprovider
