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
    /// Empty: every object below the prefix. "/": keys that have one after the prefix are folded into one entry each,
    /// the common prefix up to and including that "/". Nothing else is asked for.
    std::string Delimiter;
    /// Most entries of a page, at least 1; -1 leaves it to the store. A page may always have fewer.
    std::int32_t MaxKeys = -1;
};

/// An object store, as whoever adapts one implements it: the only way from the provider to stored bytes.
///
/// docs/writing-a-client.md builds one step by step, and the suite of ClientConformance.hpp checks one.
///
/// Keys      UTF-8 without a leading "/", as long as the caller likes; a key that ends in "/" is a folder marker, an
///           empty object. Upload ids, tags and tokens are the client's own texts; nobody else looks into them.
/// Content   an object is replaced as a whole by putObject and completeMultipartUpload: whoever reads meanwhile gets
///           the old object or the new one, never a mixture. Both are durable when the call returns.
/// Streams   a client reads data from its position on, once or, with seekg, several times, and writes to sink in order.
///           It uses neither after the call. The bytes of data may change while they are read, when a file is sent and
///           written at the same time: what is stored of those bytes does not matter, since they are sent again, but a
///           client that reads twice, first to sum up and then to send, has to read from a copy of its own.
/// Errors    a subclass of CloudException; its header tells which one for which refusal. Anything else arrives at the
///           host as an unknown failure. A call that failed may have done its work nevertheless, if only the answer was
///           lost; then nothing but that work is done.
/// Retries   the client's: it tries again what may pass (a broken connection, a busy store), a bounded number of times,
///           and only where repeating does no harm. The provider never repeats a call for itself. What the user does
///           next may: a part that could not be sent is sent again by the next write, or when the file is stored.
/// Threads   every operation may be called by several threads at once, also for one key or one upload; but an upload
///           is completed or aborted only while no other call uses it.
class CLOUDPROVIDER_EXPORT CloudClient {
public:
    CloudClient() = default;                               ///< for clients
    CloudClient(const CloudClient&) = default;             ///< for clients that can be copied
    CloudClient& operator=(const CloudClient&) = default;  ///< for clients that can be copied

    /// Describe the object of exactly that key; nothing when there is none.
    virtual boost::optional<ObjectInfo> getObjectInfo(const std::string& key) = 0;

    /// Check that the store takes a file of that name. Called before a file that need not exist is opened for writing.
    ///
    /// Values   the last component of the path, in UTF-8.
    /// Errors   InvalidLocationException when it does not.
    virtual void checkObjectName(const std::string& name) = 0;

    /// List one page of the objects whose keys begin with prefix.
    ///
    /// Values   token: empty for the first page, then as an earlier call of the same listing (prefix and delimiter)
    ///          left it. It may be used again, for the same page as far as the store has not changed: copies of a
    ///          listing go on by themselves, in any thread. It need not outlive the client, nor work with another one.
    /// Result   the entries in the order of their keys' bytes, each once; a page may be empty while token is not. token
    ///          is what continues the listing, and empty after the last page. Objects that come or go while pages are
    ///          fetched may or may not be listed; all others are. After a failure token does not count.
    virtual std::vector<ObjectInfo> listObjects(const std::string& prefix, std::string& token,
                                                const ListOptions& options) = 0;

    /// Remove an object. A missing one may be an error (ResourceNotFoundException) or not, as the store has it.
    virtual void deleteObject(const std::string& key) = 0;

    /// Write an object's bytes from position first to last, both included, to sink.
    ///
    /// Values   first = last = 0 means the whole object, however long it is; a caller that wants the first byte alone
    ///          has to drop the rest.
    /// Errors   ResourceNotFoundException when there is no such object. UnknownErrorException when it does not have all
    ///          of the range, as after somebody stored a shorter one, and when sink takes no more, which its state
    ///          tells: an answer with fewer bytes is never a success. sink may have some bytes by then. What sink
    ///          throws, if it throws, passes through.
    virtual void getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) = 0;

    /// Store an object in one go: the next size bytes of data, which is seekable. size may be 0.
    ///
    /// Errors   whatever the store refuses, and data that ends before; the stored object is the old one then, or, if
    ///          only the answer was lost, the new one.
    virtual void putObject(const std::string& key, std::istream& data, std::uint64_t size) = 0;

    /// Describe how a stored object is divided into parts.
    ///
    /// The parts are what the provider fetches, sends and has copied. They need not be those of an upload.
    ///
    /// Result   in order, with indices from 0 on, and covering the object: the first begins at 0, each begins where the
    ///          one before ends, and the last ends with the object. Bytes that no part has would be lost by the next
    ///          edit. Empty when the object has a single part, or is not there.
    virtual std::vector<PartInfo> getObjectParts(const std::string& key) = 0;

    /// Begin a multipart upload; the stored object stays as it is until the upload completes.
    ///
    /// Values   lastTag: what the upload is based on: the tag of the object's first part as it was described, or of the
    ///          part uploaded last; empty for a new object, and for one that was stored since it was described. A store
    ///          that keeps more than bytes (content type, user metadata) finds by it whose they are to be kept; all
    ///          others ignore it. It is no condition for the completion.
    /// Result   the upload's id. No other upload has it, and several uploads of a key may be under way.
    virtual std::string startMultipartUpload(const std::string& key, const std::string& lastTag) = 0;

    /// Send one part. Parts come in any order, and several at once. Sending an index again replaces what was sent
    /// before, once it has succeeded.
    ///
    /// Values   part.Index and part.Size, which is not 0, count, its Tag does not; data is seekable and holds part.Size
    ///          bytes.
    /// Result   the tag of what was stored, not empty.
    virtual std::string uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                   std::istream& data) = 0;

    /// Take a part from the bytes that the stored object holds at part.Offset, without sending them. The part begins at
    /// part.Offset in the new object, too.
    ///
    /// Values   part.Tag: the tag that the stored part was described with, empty if it had none.
    /// Result   the tag of the new part, not empty.
    /// Errors   a client that can tell refuses a tag whose object was replaced since (ResourceInUseException), rather
    ///          than mix two versions. A range that the object does not have, and a missing object, are failures.
    virtual std::string copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) = 0;

    /// Give an upload and its parts up. One that is no longer there may be an error or not: callers that abort after a
    /// lost answer ignore it.
    virtual void abortMultipartUpload(const std::string& key, const std::string& uploadId) = 0;

    /// Make the parts, in order of their Index and each with the Tag that it got in this upload, the object. Indices
    /// may have gaps. Every part that the upload holds is listed: Ceph's gateway refuses to leave one out.
    ///
    /// Values   parts: at least one.
    /// Errors   a part that was not sent like this, and whatever the store refuses. The stored object is the old one
    ///          then, or, if only the answer was lost, the new one. Unless that has happened the upload is still there
    ///          with all its parts: it may be completed again, and has to be aborted by whoever does not.
    virtual void completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                         const std::vector<PartInfo>& parts) = 0;

    virtual ~CloudClient();
};

}  // namespace storage::cloudprovider
