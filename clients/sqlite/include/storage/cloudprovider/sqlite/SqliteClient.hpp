// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/sqlite/export.hpp>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// How a SqliteClient treats its file.
struct SqliteOptions {
    /// How long an operation waits for other writers, whether of this client, another one, or another process, before
    /// it fails with a ResourceInUseException.
    std::chrono::milliseconds BusyTimeout = std::chrono::seconds(60);
};

/// An object store in one SQLite file.
///
/// Content   replaced as a whole in one transaction, durable when the call returns; whoever reads meanwhile
///           has the object as it was when the read began. Bytes are held in chunks of at most 1 MiB, so an
///           object may be as large as the file system takes. copyPart and copyObject share the stored chunks instead
///           of copying them, copyObject the parts and their tags, too; a chunk's room is used again when nothing
///           refers to any of its bytes, so a small range that was copied keeps its whole chunk. The file
///           shrinks by compactSqliteStore, or when something is removed while the disk is nearly full.
/// Listings  at most 1,000 entries a page. With a delimiter the cost follows what is returned, not what lies
///           below. A common prefix has the time of its marker object, not_a_date_time without one.
/// Parts     getObjectParts answers the parts as uploaded; an object put whole has parts of 8 MiB. copyPart
///           takes only a stored part that has the given tag, any range when the tag is empty.
/// Versions  each stored object has one of its own, even if its bytes are those of the former, or of another object.
///           copyRange takes any range of it, whatever the tag. What is expected is compared in the transaction that
///           reads or writes; copyRun is one, and takes all parts or none.
/// Uploads   an upload without activity for a day is dropped when a client begins an upload, or opens the
///           store while nobody else is writing; like one that is aborted, in small transactions. Parts wait for the
///           disk with the completion: a loss of power before may take them, or the upload, away.
/// Damage    every row, and every chunk of bytes, has a checksum that is compared when it is read, and the list of
///           objects shows where one is missing. What is not as it was written is an UnknownErrorException that says
///           "the store is damaged"; no byte of the chunk is given. An object whose bytes are damaged can be removed or
///           replaced.
/// Errors    CloudException, the text with SQLite's own words. Deleting a missing object, and copying from
///           one, are ResourceNotFoundExceptions; an empty key, or a name that is empty or holds a NUL byte,
///           an InvalidLocationException; data that ends early, ranges beyond the object, unknown uploads and
///           parts that do not match what was sent, UnknownErrorExceptions that change nothing. A
///           ResourceInUseException says "meanwhile" when the object is not the one expected; else the store was busy
///           for too long.
/// Threads   any; several clients and processes may use one file at once, on a local file system. Writers take turns,
///           so limits calls only one upload at a time useful; readers wait for nobody. Objects of
///           at most 256 KiB that are put at the same time share a commit: their data is read before they wait, on the
///           caller's thread like all data. A stream that itself writes to the store waits in vain, until its time is
///           up. A client must not be used on both sides of a fork.
class CLOUDPROVIDER_SQLITE_EXPORT SqliteClient final : public ExtendedCloudClient {
public:
    /// Open the store in a file, or make one when the file is missing or empty. One that cannot be written, on a mount
    /// for reading or without the right to, is opened for reading: changes are PermissionDeniedExceptions.
    ///
    /// Values   the file's path in UTF-8; its folder must exist. Two more files, named like it with -wal and
    ///          -shm, lie beside it; they belong to it. A third one, -reserve, takes up room for removals on a full
    ///          disk. Reading only needs them, too, unless the mount is for reading.
    /// Errors   UnknownErrorException when the file is no such store, a newer one or damaged,
    ///          UnsupportedOperationException when it is an older one, which upgradeSqliteStore converts; it is left as
    ///          it is. PermissionDeniedException when it can be read neither, or not safely.
    explicit SqliteClient(const std::string& file, const SqliteOptions& options = {});
    SqliteClient(const SqliteClient&) = delete;
    SqliteClient& operator=(const SqliteClient&) = delete;
    ~SqliteClient() override;

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
    std::optional<ObjectDescription> describeObject(const std::string& key) override;
    void getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                  std::ostream& sink) override;
    std::string copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                          const std::string& version) override;
    std::vector<PartInfo> copyRun(const std::string& key, const std::string& uploadId, const std::vector<PartInfo>& run,
                                  const std::string& version) override;
    std::string putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                              const ExpectedObject& expected) override;
    std::string completeUploadOver(const std::string& key, const std::string& uploadId,
                                   const std::vector<PartInfo>& parts, const ExpectedObject& expected) override;
    bool copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                    const ExpectedObject& expected) override;
    void removeObject(const std::string& key, const std::string& version) override;
    /// Started is when the upload's last part came.
    std::vector<UnfinishedUpload> listUploads(const std::string& prefix, std::string& token) override;
    StoreLimits limits() const override;

private:
    class Implementation;
    const std::unique_ptr<Implementation> m_implementation;
};

}  // namespace storage::cloudprovider
