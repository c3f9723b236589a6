// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cloudfs {

class ProgressBar;

/// Shows how far a copy has come whose bytes travel: those that were fetched, then that they are being stored. What the
/// store copies by itself shows nothing. Everything is done by another client. Nobody else may use the progress bar
/// while operations run.
class ProgressClient final : public storage::cloudprovider::ExtendedCloudClient {
public:
    using ObjectInfo = storage::cloudprovider::ObjectInfo;
    using ListOptions = storage::cloudprovider::ListOptions;
    using PartInfo = storage::cloudprovider::PartInfo;
    using ObjectDescription = storage::cloudprovider::ObjectDescription;
    using ObjectRange = storage::cloudprovider::ObjectRange;
    using ExpectedObject = storage::cloudprovider::ExpectedObject;

    /// progress has to outlive this.
    ProgressClient(std::shared_ptr<ExtendedCloudClient> client, ProgressBar& progress);

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
    std::vector<storage::cloudprovider::UnfinishedUpload> listUploads(const std::string& prefix,
                                                                      std::string& token) override;
    storage::cloudprovider::StoreLimits limits() const override;

private:
    void countFetched(std::uint64_t bytes);
    void announceStoring();

    const std::shared_ptr<ExtendedCloudClient> m_client;
    foundation::Mutex m_mutex;
    ProgressBar& m_progress CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace cloudfs
