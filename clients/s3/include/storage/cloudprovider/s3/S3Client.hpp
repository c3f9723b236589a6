// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/s3/S3Options.hpp>
#include <storage/cloudprovider/s3/export.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// What a client has moved so far, including headers and failed tries.
struct S3Traffic {
    std::uint64_t Requests = 0;       ///< HTTP requests
    std::uint64_t BytesSent = 0;      ///< to the store
    std::uint64_t BytesReceived = 0;  ///< from the store
};

/// A bucket of an S3-compatible object store, or what lies below a prefix of its keys.
///
/// Content   what is put and uploaded replaces the object as a whole, and is durable as the store promises it. Each
///           write leaves its random id in the object's metadata, followed by those of the writes before: so a write
///           whose answer was lost is found again.
/// Versions  the ETag, without quotes. Equal contents put in one go have equal ones: what somebody else replaced and
///           put back counts as never changed. A store that answers weak ETags, or none, tells no versions.
/// Parts     of one size, S3Options::PartSize or more, however the object was uploaded: any range can be copied. Their
///           tag names the version.
/// Edits     keep content type, encoding, language and disposition, cache control, expiry, user metadata, storage
///           class, encryption and tags of the version that is edited. What cannot be kept refuses the edit with an
///           UnsupportedOperationException, see S3Options::MayLoseAttributes.
/// Conditions are sent with every write and copy. What a store does not honour is looked up right before: for
///           completions and copies always, see S3Options::HonoursAllConditions, for puts where it says that it knows
///           none (501). If somebody else writes between the two, that is replaced. copyRange and copyRun may
///           take bytes of a newer version there; completing with the expected version is refused then. Removal in a
///           version always looks first.
/// Memory    a part, or an object that is put, is read once, hashed and sent from memory: at most
///           S3Options::Connections of them at once.
/// Errors    CloudException: step, key, HTTP status, the store's code, message and request id. Failures that pass are
///           tried again, see S3Options::MostTries. Removing a missing object is none. completeUploadOver once more is
///           a success as long as what it made is stored.
/// Interrupts  in the host's main execution context every operation ends within about a second, with
///           OperationInterrupted.
/// Threads   any; none is started. After a fork the child may go on with connections of its own, if no other thread was
///           inside the client.
class CLOUDPROVIDER_S3_EXPORT S3Client final : public ExtendedCloudClient {
public:
    /// Look up what the options leave out; asks the store nothing.
    ///
    /// Errors   InvalidLocationException, InvalidCredentialsException: the text names the setting, never its value.
    explicit S3Client(const S3Options& options);
    S3Client(const S3Client&) = delete;
    S3Client& operator=(const S3Client&) = delete;
    ~S3Client() override;

    /// What was moved so far. Threads: any.
    S3Traffic traffic() const;

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
    std::optional<ObjectDescription> describeWithStart(const std::string& key, std::uint64_t most,
                                                       std::string& start) override;
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
    void deleteObjects(const std::vector<std::string>& keys) override;
    std::vector<UnfinishedUpload> listUploads(const std::string& prefix, std::string& token) override;
    StoreLimits limits() const override;

private:
    class Implementation;
    const std::unique_ptr<Implementation> m_implementation;
};

}  // namespace storage::cloudprovider
