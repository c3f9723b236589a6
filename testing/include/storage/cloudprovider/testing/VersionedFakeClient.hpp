// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/testing/FakeCloudClient.hpp>
#include <storage/cloudprovider/testing/export.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace storage::cloudprovider::test {

/// One process's client of a fake store that tells versions: several over one FakeCloudClient act like several
/// processes on one store. Everything happens in that FakeCloudClient, which records the calls, holds them and lets
/// them fail, and throws what its header says. Threads: any.
class CLOUDPROVIDER_TESTING_EXPORT VersionedFakeClient : public ExtendedCloudClient {
public:
    /// A client of that store, which must not be null.
    explicit VersionedFakeClient(std::shared_ptr<FakeCloudClient> store);
    VersionedFakeClient(const VersionedFakeClient&) = delete;
    VersionedFakeClient& operator=(const VersionedFakeClient&) = delete;
    ~VersionedFakeClient() override;

    // ExtendedCloudClient's operations, as it and CloudClient describe them.
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
    StoreLimits limits() const override;

private:
    const std::shared_ptr<FakeCloudClient> m_store;
};

}  // namespace storage::cloudprovider::test
