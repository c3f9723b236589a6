// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/testing/CallControl.hpp>
#include <storage/cloudprovider/testing/export.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

/// An object store in memory that takes less from its callers than any real one.
///
/// Every call goes through CallControl: a test sees it, may hold it, and may let it fail. No lock is held while the
/// caller's streams are used.
///
/// A plain client, though its store tells versions: VersionedFakeClient shows them. Parts may be of any size but 0.
/// Objects get times of their own, in UTC and from 2020 on, each a second or more later than the one stored before.
///
/// Errors   std::logic_error from a call that breaks the contract, which is remembered, too: see violations. Else what
///          CloudClient says: a missing object is a ResourceNotFoundException, for deleteObject, too.
/// Threads  any.
class CLOUDPROVIDER_TESTING_EXPORT FakeCloudClient : public CloudClient, public CallControl {
public:
    /// How the store answers, within what the contract leaves open.
    struct Options {
        std::size_t pageSize = 1000;         ///< most entries of a page, not 0
        bool emptyPages = false;             ///< an empty page before each page and after the last one
        std::size_t transferChunkSize = 97;  ///< most bytes handed to a sink at once, not 0
        /// Called with what getObject or getRange is about to deliver, to shorten or lengthen it, or to throw. It runs
        /// on the caller's thread, so on several at once if calls are.
        std::function<void(std::string& bytes)> onDownload{};
        bool copiesInStore = true;  ///< copyObject copies; else it answers false
        bool sendsStarts = false;   ///< describeWithStart sends bytes, too
        StoreLimits limits{};       ///< what limits answers
    };

    /// An empty store.
    FakeCloudClient();
    /// An empty store that answers like that.
    explicit FakeCloudClient(Options options);
    ~FakeCloudClient() override;

    /// Store an object as putObject would. No call, no checks; nothing is recorded, held or fails.
    void store(const std::string& key, std::string bytes);
    /// Store an object as an upload of parts of these sizes, in bytes, would; as store besides. Throws
    /// std::invalid_argument when the sizes do not add up to the object's.
    void storeParts(const std::string& key, std::string bytes, const std::vector<std::uint64_t>& partSizes);
    /// Let getObjectParts and describeObject tell this of an object until it is replaced, true or not. Throws
    /// std::out_of_range when no such object is stored.
    void reportParts(const std::string& key, std::vector<PartInfo> parts);

    /// What is stored; nothing when there is no such object.
    std::optional<std::string> content(const std::string& key) const;
    /// The version of what is stored; each put, completed upload and store gives a new one. Nothing when there is no
    /// such object.
    std::optional<std::string> version(const std::string& key) const;
    /// Every key that is stored, in the order of the bytes.
    std::vector<std::string> keys() const;
    /// Uploads that were started and neither completed nor aborted.
    std::size_t openUploads() const;
    /// The breaches of the contract so far, one text each, in their order. Callers may swallow what a breach throws, so
    /// a test that expects none asserts that this is empty.
    std::vector<std::string> violations() const;

    // CloudClient's operations, as it describes them.
    boost::optional<ObjectInfo> getObjectInfo(const std::string& key) override;
    void checkObjectName(const std::string& name) override;
    std::vector<ObjectInfo> listObjects(const std::string& prefix, std::string& token,
                                        const ListOptions& options) override;
    void deleteObject(const std::string& key) override;
    void getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) override;
    void putObject(const std::string& key, std::istream& data, std::uint64_t size) override;
    std::vector<PartInfo> getObjectParts(const std::string& key) override;
    std::string startMultipartUpload(const std::string& key, const std::string& lastTag) override;
    std::string uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                           std::istream& data) override;
    std::string copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) override;
    void abortMultipartUpload(const std::string& key, const std::string& uploadId) override;
    void completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                 const std::vector<PartInfo>& parts) override;

    // ExtendedCloudClient's operations, for VersionedFakeClient. A version that the key never had is a breach of the
    // contract, one that it has no more is a ResourceInUseException.

    /// As ExtendedCloudClient::describeObject.
    std::optional<ObjectDescription> describeObject(const std::string& key);
    /// As ExtendedCloudClient::describeWithStart.
    std::optional<ObjectDescription> describeWithStart(const std::string& key, std::uint64_t most, std::string& start);
    /// As ExtendedCloudClient::getRange.
    void getRange(const std::string& key, const std::string& version, const ObjectRange& range, std::ostream& sink);
    /// As ExtendedCloudClient::copyRange. With a version, part.Tag does not count.
    std::string copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                          const std::string& version);
    /// As ExtendedCloudClient::copyRun, all parts or none; a record for each part.
    std::vector<PartInfo> copyRun(const std::string& key, const std::string& uploadId, const std::vector<PartInfo>& run,
                                  const std::string& version);
    /// As ExtendedCloudClient::putObjectOver.
    std::string putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                              const ExpectedObject& expected);
    /// As ExtendedCloudClient::completeUploadOver.
    std::string completeUploadOver(const std::string& key, const std::string& uploadId,
                                   const std::vector<PartInfo>& parts, const ExpectedObject& expected);
    /// As ExtendedCloudClient::copyObject; the copy has the object's parts.
    bool copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                    const ExpectedObject& expected);
    /// As ExtendedCloudClient::removeObject.
    void removeObject(const std::string& key, const std::string& version);
    /// As ExtendedCloudClient::deleteObjects: one call, with the first key.
    void deleteObjects(const std::vector<std::string>& keys);
    /// As ExtendedCloudClient::limits; no call of the store.
    StoreLimits limits() const { return m_options.limits; }
    /// Whether it is a store that has describeWithStart.
    bool sendsStarts() const { return m_options.sendsStarts; }

private:
    struct Object {
        std::string version;
        std::shared_ptr<const std::string> bytes;  // shared with downloads under way
        boost::posix_time::ptime lastModified;
        std::vector<PartInfo> parts;  // empty when stored whole
    };
    struct UploadedPart {
        std::string bytes;
        std::string tag;
    };
    struct Upload {
        std::string key;
        std::map<std::uint64_t, UploadedPart> parts;
    };
    struct Cursor {  // where a listing goes on
        std::string prefix;
        std::string delimiter;
        std::optional<std::string> after;  // the last key or common prefix delivered
        bool isFolded = false;             // after is a common prefix
        bool isAtEnd = false;              // only the empty last page is left
        bool wasEmpty = false;             // the empty page before this one was delivered
    };
    std::optional<ObjectDescription> describe(const std::string& key, std::uint64_t most, std::string* start) const;
    [[noreturn]] void violate(const std::string& text) const;
    void require(bool condition, const std::string& text) const;
    void requireKey(const std::string& key) const;
    std::optional<std::string> findVersion(const std::string& key) const;
    void requireExpected(const std::string& key, const ExpectedObject& expected) const;
    const Object& findObject(const std::string& key, const std::string& version) const;
    void deliver(std::string bytes, std::ostream& sink) const;
    std::string receive(std::istream& data, std::uint64_t size) const;
    Upload& findUpload(const std::string& key, const std::string& uploadId);
    std::string addPart(const std::string& key, const std::string& uploadId, const PartInfo& part, std::string bytes);
    std::vector<PartInfo> addCopiedParts(const std::string& key, const std::string& uploadId,
                                         std::vector<PartInfo> parts, const std::string& version);
    void checkParts(const Upload& upload, const std::vector<PartInfo>& parts) const;
    std::string put(const std::string& key, std::string bytes, std::vector<PartInfo> parts);
    std::string putExpected(const std::string& key, std::istream& data, std::uint64_t size,
                            const ExpectedObject& expected);
    std::string completeExpected(const std::string& key, const std::string& uploadId,
                                 const std::vector<PartInfo>& parts, const ExpectedObject& expected);
    std::string newName(const std::string& kind);
    std::string keepCursor(Cursor cursor);
    Cursor takeCursor(const std::string& prefix, const std::string& token, const ListOptions& options) const;
    std::vector<ObjectInfo> collect(Cursor& cursor, std::size_t limit) const;

    const Options m_options;

    // Guards all below but the violations. Never held while a caller's stream is used.
    mutable std::mutex m_mutex;
    std::map<std::string, Object> m_objects;
    std::map<std::string, std::string> m_versions;  // all that ever were, with their keys
    std::map<std::string, Upload> m_uploads;
    std::map<std::string, Cursor> m_cursors;  // by token; kept, for a token may be used again
    std::uint64_t m_lastNumber = 0;           // of tags, versions, upload ids, tokens and seconds

    mutable std::mutex m_violationsMutex;  // guards m_violations; taken last
    mutable std::vector<std::string> m_violations;
};

}  // namespace storage::cloudprovider::test
