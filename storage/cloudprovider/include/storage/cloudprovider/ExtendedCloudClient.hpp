// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/CloudClient.hpp>
#include <storage/cloudprovider/export.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// An object as it is stored at one moment.
struct ObjectDescription {
    /// Names the object's content: it changes whenever the object is replaced, and no other content of the key ever
    /// has it. Empty: this store cannot tell versions apart.
    std::string Version;
    /// The whole object, as getObjectParts describes it, but never none: a small object, or an empty one, is one part.
    std::vector<PartInfo> Parts;
};

/// A run of an object's bytes.
struct ObjectRange {
    std::uint64_t First = 0;  ///< position of the first byte
    std::uint64_t Size = 0;   ///< in bytes, not 0
    bool IsWhole = false;     ///< these are known to be all bytes that the object has
};

/// What has to be stored under a key for an operation to replace it. A value.
class CLOUDPROVIDER_EXPORT ExpectedObject {
public:
    /// Whatever is there, or nothing.
    static ExpectedObject anything();
    /// No object.
    static ExpectedObject absent();
    /// The object of that version. An empty one, of a store that cannot tell versions apart, is anything.
    static ExpectedObject version(std::string version);

    /// Whether anything may be there, and nothing, too.
    bool isAnything() const noexcept { return m_kind == Kind::Anything; }
    /// Whether nothing may be there.
    bool isAbsent() const noexcept { return m_kind == Kind::Absent; }
    /// The version; empty unless one is expected.
    const std::string& getVersion() const noexcept { return m_version; }

    /// Whether it is met by what is stored: an object's version, or nothing when there is none.
    bool isMetBy(const std::optional<std::string>& storedVersion) const;

private:
    enum class Kind : std::uint8_t { Anything, Absent, Version };

    ExpectedObject(Kind kind, std::string version);

    Kind m_kind;
    std::string m_version;
};

/// What a store takes. The defaults are those of a store without limits.
struct StoreLimits {
    /// Of what has no limit.
    static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

    /// How many transfers at once make a file be stored faster; at least 1. More do no harm.
    std::size_t UsefulUploads = kUnlimited;
    /// The same for fetching it.
    std::size_t UsefulDownloads = kUnlimited;

    /// Least bytes of a part of an upload; its last part may be smaller.
    std::uint64_t SmallestPart = 0;
    /// Most bytes of a part of an upload.
    std::uint64_t LargestPart = std::numeric_limits<std::uint64_t>::max();
    /// Most parts of an upload; at least 1.
    std::uint64_t MostParts = std::numeric_limits<std::uint64_t>::max();
    /// Most bytes of an object.
    std::uint64_t LargestObject = std::numeric_limits<std::uint64_t>::max();
    /// Most bytes that putObject stores in one go.
    std::uint64_t LargestPut = std::numeric_limits<std::uint64_t>::max();
    /// Most bytes of a key.
    std::size_t LongestKey = kUnlimited;
    /// Most keys that one call of deleteObjects removes in one request; at least 1.
    std::size_t DeletedAtOnce = 1;
};

/// A multipart upload that was begun and neither completed nor given up.
struct UnfinishedUpload {
    std::string Key;                   ///< of the object that it is to become
    std::string UploadId;              ///< as startMultipartUpload answered it
    boost::posix_time::ptime Started;  ///< UTC; not_a_date_time when unknown
    std::uint64_t Size = 0;            ///< bytes of the parts that it holds
};

/// What a store can do beyond the twelve operations. Each operation has a default made of those, which knows no
/// versions: it ignores version and expected, and answers an empty version. A client overrides what its store does
/// better. A decorator of such a client forwards these operations, too.
///
/// A client that tells versions overrides at least describeObject, getRange, copyRange, putObjectOver,
/// completeUploadOver and removeObject; the defaults of the others are made of those. That way an object that was
/// replaced while somebody edits it is never mixed with the edit, nor lost by it.
///
/// Errors   as CloudClient; ResourceInUseException besides, where an operation says so.
/// Threads  every operation may be called by several threads at once.
class CLOUDPROVIDER_EXPORT ExtendedCloudClient : public CloudClient {
public:
    ExtendedCloudClient() = default;                                       ///< for clients
    ExtendedCloudClient(const ExtendedCloudClient&) = default;             ///< for clients that can be copied
    ExtendedCloudClient& operator=(const ExtendedCloudClient&) = default;  ///< for clients that can be copied
    ~ExtendedCloudClient() override;

    /// Describe the object of exactly that key, all of it at one moment; nothing when there is none.
    virtual std::optional<ObjectDescription> describeObject(const std::string& key);

    /// Describe an object as describeObject does, for somebody who is about to read it from its beginning.
    ///
    /// Values   most: how many of the object's first bytes are wanted; no further request is to be made for them.
    ///          start: empty.
    /// Result   start has the first bytes of the version that is described, at most that many; none by default, or if
    ///          the store cannot answer both at once.
    virtual std::optional<ObjectDescription> describeWithStart(const std::string& key, std::uint64_t most,
                                                               std::string& start);

    /// Write the bytes of a range to sink.
    ///
    /// Values   version: the description that the range was made by; empty where it had none.
    /// Errors   ResourceInUseException when that version is no longer the stored one; ResourceNotFoundException when
    ///          there is no object, and no version was given; else as getObject, also for a range past the end.
    virtual void getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                          std::ostream& sink);

    /// Take a part from the bytes that the stored object holds at part.Offset, as copyPart.
    ///
    /// Values   version: as in getRange.
    /// Result   the tag of the new part.
    /// Errors   ResourceInUseException when that version is no longer the stored one.
    virtual std::string copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                  const std::string& version);

    /// Take neighbouring parts from the bytes that the stored object holds at their offsets, as copyRange.
    ///
    /// Values   run: in order, without gaps, not empty. version: as in getRange.
    /// Result   the records to complete the upload with in place of the run, tags and all: together they cover it.
    ///          Fewer than the run has parts only where describeObject does not follow how an object was uploaded; else
    ///          the next edit would have to move a whole run for a byte.
    /// Errors   ResourceInUseException when that version is no longer the stored one. A run that failed may be taken
    ///          again.
    virtual std::vector<PartInfo> copyRun(const std::string& key, const std::string& uploadId,
                                          const std::vector<PartInfo>& run, const std::string& version);

    /// Store an object in one go, as putObject, if what is there is what is expected.
    ///
    /// Result   the version that was stored; empty: this store cannot tell.
    /// Errors   ResourceInUseException when something else is there, which stays as it is. Never when that is what this
    ///          very call stored: a client that asks again after a lost answer has to tell.
    virtual std::string putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                      const ExpectedObject& expected);

    /// Make the parts the object, as completeMultipartUpload, if what is there is what is expected. An upload that is
    /// refused stays, for the caller to abort, or to complete with another expectation. As long as the caller cannot
    /// know whether it was stored, describeObject answers the parts with the tags that were given here.
    ///
    /// Result   the version that was stored; empty: this store cannot tell.
    /// Errors   ResourceInUseException when something else is there, which stays as it is.
    virtual std::string completeUploadOver(const std::string& key, const std::string& uploadId,
                                           const std::vector<PartInfo>& parts, const ExpectedObject& expected);

    /// Copy an object inside the store, if what is at the destination is what is expected. The two keys are different.
    ///
    /// Values   fromVersion: the version to copy; empty: whatever is stored.
    /// Result   false, with nothing done: the store cannot do that by itself, and the bytes have to travel. That is
    ///          the default.
    /// Errors   ResourceInUseException when fromVersion is no longer stored, or when something other than expected
    ///          is at the destination, which stays as it is; ResourceNotFoundException when there is no such object and
    ///          no version was given.
    virtual bool copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                            const ExpectedObject& expected);

    /// Remove an object, as deleteObject, if it still has that version; the default does not look.
    ///
    /// Values   version: as in getRange.
    /// Errors   ResourceInUseException when that version is no longer the stored one, which stays as it is.
    virtual void removeObject(const std::string& key, const std::string& version);

    /// Remove objects, each as deleteObject does; a missing one is no error. The default calls that for one after the
    /// other.
    ///
    /// Values   keys: at most limits().DeletedAtOnce.
    /// Errors   whatever kept an object from being removed. The others are removed all the same where the store takes
    ///          several at once; the text names each that was not, and the type is that of the first.
    virtual void deleteObjects(const std::vector<std::string>& keys);

    /// List one page of the uploads that somebody left unfinished, or still works on.
    ///
    /// Values   prefix: of their keys. token: empty for the first page, then as the previous call left it.
    /// Result   in the order of the keys; token is empty after the last page.
    /// Errors   UnsupportedOperationException where the store cannot tell, as by default.
    virtual std::vector<UnfinishedUpload> listUploads(const std::string& prefix, std::string& token);

    /// What the store takes; the same for as long as the client lives. The default knows no limit.
    virtual StoreLimits limits() const;
};

}  // namespace storage::cloudprovider
