// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/testing/CallControl.hpp>

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace soak {

/// A client of a real store whose calls fail when they are told to.
///
/// Beginning an upload fails before it is begun or not at all, and giving one up never: the store keeps an upload whose
/// id got lost, and the soak could not tell it from one that was forgotten. Threads: any.
class FaultyClient final : public storage::cloudprovider::ExtendedCloudClient,
                           public storage::cloudprovider::test::CallControl {
public:
    /// store must not be null.
    explicit FaultyClient(std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> store);
    FaultyClient(const FaultyClient&) = delete;
    FaultyClient& operator=(const FaultyClient&) = delete;
    ~FaultyClient() override;

    // ExtendedCloudClient's operations, as it and CloudClient describe them.
    boost::optional<storage::cloudprovider::ObjectInfo> getObjectInfo(const std::string& key) override;
    void checkObjectName(const std::string& name) override;
    std::vector<storage::cloudprovider::ObjectInfo> listObjects(
        const std::string& prefix, std::string& token, const storage::cloudprovider::ListOptions& options) override;
    void deleteObject(const std::string& key) override;
    void getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) override;
    void putObject(const std::string& key, std::istream& data, std::uint64_t size) override;
    std::vector<storage::cloudprovider::PartInfo> getObjectParts(const std::string& key) override;
    std::string startMultipartUpload(const std::string& key, const std::string& lastTag) override;
    std::string uploadPart(const std::string& key, const std::string& uploadId,
                           const storage::cloudprovider::PartInfo& part, std::istream& data) override;
    std::string copyPart(const std::string& key, const std::string& uploadId,
                         const storage::cloudprovider::PartInfo& part) override;
    void abortMultipartUpload(const std::string& key, const std::string& uploadId) override;
    void completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                 const std::vector<storage::cloudprovider::PartInfo>& parts) override;
    std::optional<storage::cloudprovider::ObjectDescription> describeObject(const std::string& key) override;
    void getRange(const std::string& key, const std::string& version, const storage::cloudprovider::ObjectRange& range,
                  std::ostream& sink) override;
    std::string copyRange(const std::string& key, const std::string& uploadId,
                          const storage::cloudprovider::PartInfo& part, const std::string& version) override;
    std::vector<storage::cloudprovider::PartInfo> copyRun(const std::string& key, const std::string& uploadId,
                                                          const std::vector<storage::cloudprovider::PartInfo>& run,
                                                          const std::string& version) override;
    std::string putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                              const storage::cloudprovider::ExpectedObject& expected) override;
    std::string completeUploadOver(const std::string& key, const std::string& uploadId,
                                   const std::vector<storage::cloudprovider::PartInfo>& parts,
                                   const storage::cloudprovider::ExpectedObject& expected) override;
    bool copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                    const storage::cloudprovider::ExpectedObject& expected) override;
    void removeObject(const std::string& key, const std::string& version) override;
    void deleteObjects(const std::vector<std::string>& keys) override;
    std::vector<storage::cloudprovider::UnfinishedUpload> listUploads(const std::string& prefix,
                                                                      std::string& token) override;
    storage::cloudprovider::StoreLimits limits() const override;

private:
    const std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> m_store;
};

/// Whether it is a failure that a FaultyClient was told to make, or the host's report of one.
bool isInjected(const std::exception& failure);

}  // namespace soak
