// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/VersionedFakeClient.hpp>

#include <utility>

namespace storage::cloudprovider::test {

VersionedFakeClient::VersionedFakeClient(std::shared_ptr<FakeCloudClient> store) : m_store(std::move(store)) {}
VersionedFakeClient::~VersionedFakeClient() = default;

boost::optional<ObjectInfo> VersionedFakeClient::getObjectInfo(const std::string& key) {
    return m_store->getObjectInfo(key);
}

void VersionedFakeClient::checkObjectName(const std::string& name) {
    m_store->checkObjectName(name);
}

std::vector<ObjectInfo> VersionedFakeClient::listObjects(const std::string& prefix, std::string& token,
                                                         const ListOptions& options) {
    return m_store->listObjects(prefix, token, options);
}

void VersionedFakeClient::deleteObject(const std::string& key) {
    m_store->deleteObject(key);
}

void VersionedFakeClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first,
                                    std::uint64_t last) {
    m_store->getObject(key, sink, first, last);
}

void VersionedFakeClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    m_store->putObject(key, data, size);
}

std::vector<PartInfo> VersionedFakeClient::getObjectParts(const std::string& key) {
    return m_store->getObjectParts(key);
}

std::string VersionedFakeClient::startMultipartUpload(const std::string& key, const std::string& lastTag) {
    return m_store->startMultipartUpload(key, lastTag);
}

std::string VersionedFakeClient::uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                            std::istream& data) {
    return m_store->uploadPart(key, uploadId, part, data);
}

std::string VersionedFakeClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return m_store->copyPart(key, uploadId, part);
}

void VersionedFakeClient::abortMultipartUpload(const std::string& key, const std::string& uploadId) {
    m_store->abortMultipartUpload(key, uploadId);
}

void VersionedFakeClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                                  const std::vector<PartInfo>& parts) {
    m_store->completeMultipartUpload(key, uploadId, parts);
}

std::optional<ObjectDescription> VersionedFakeClient::describeObject(const std::string& key) {
    return m_store->describeObject(key);
}

std::optional<ObjectDescription> VersionedFakeClient::describeWithStart(const std::string& key, std::uint64_t most,
                                                                        std::string& start) {
    return m_store->sendsStarts() ? m_store->describeWithStart(key, most, start)
                                  : ExtendedCloudClient::describeWithStart(key, most, start);
}

void VersionedFakeClient::getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                                   std::ostream& sink) {
    m_store->getRange(key, version, range, sink);
}

std::string VersionedFakeClient::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                           const std::string& version) {
    return m_store->copyRange(key, uploadId, part, version);
}

std::vector<PartInfo> VersionedFakeClient::copyRun(const std::string& key, const std::string& uploadId,
                                                   const std::vector<PartInfo>& run, const std::string& version) {
    return m_store->copyRun(key, uploadId, run, version);
}

std::string VersionedFakeClient::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                               const ExpectedObject& expected) {
    return m_store->putObjectOver(key, data, size, expected);
}

std::string VersionedFakeClient::completeUploadOver(const std::string& key, const std::string& uploadId,
                                                    const std::vector<PartInfo>& parts,
                                                    const ExpectedObject& expected) {
    return m_store->completeUploadOver(key, uploadId, parts, expected);
}

bool VersionedFakeClient::copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                                     const ExpectedObject& expected) {
    return m_store->copyObject(from, fromVersion, to, expected);
}

void VersionedFakeClient::removeObject(const std::string& key, const std::string& version) {
    m_store->removeObject(key, version);
}

void VersionedFakeClient::deleteObjects(const std::vector<std::string>& keys) {
    m_store->deleteObjects(keys);
}

StoreLimits VersionedFakeClient::limits() const {
    return m_store->limits();
}

}  // namespace storage::cloudprovider::test
