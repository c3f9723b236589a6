// SPDX-License-Identifier: Apache-2.0
#include "store/ProgressClient.hpp"

#include "terminal/ProgressBar.hpp"

#include <utility>

namespace cloudfs {

ProgressClient::ProgressClient(std::shared_ptr<ExtendedCloudClient> client, ProgressBar& progress)
    : m_client(std::move(client)), m_progress(progress) {}

boost::optional<ProgressClient::ObjectInfo> ProgressClient::getObjectInfo(const std::string& key) {
    return m_client->getObjectInfo(key);
}

void ProgressClient::checkObjectName(const std::string& name) {
    m_client->checkObjectName(name);
}

std::vector<ProgressClient::ObjectInfo> ProgressClient::listObjects(const std::string& prefix, std::string& token,
                                                                    const ListOptions& options) {
    return m_client->listObjects(prefix, token, options);
}

void ProgressClient::deleteObject(const std::string& key) {
    m_client->deleteObject(key);
}

// first = last = 0 does not tell a size; the provider asks so for the first byte.
void ProgressClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    m_client->getObject(key, sink, first, last);
    countFetched(last - first + 1);
}

void ProgressClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    announceStoring();
    m_client->putObject(key, data, size);
}

std::vector<ProgressClient::PartInfo> ProgressClient::getObjectParts(const std::string& key) {
    return m_client->getObjectParts(key);
}

std::string ProgressClient::startMultipartUpload(const std::string& key, const std::string& lastTag) {
    announceStoring();
    return m_client->startMultipartUpload(key, lastTag);
}

std::string ProgressClient::uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                       std::istream& data) {
    return m_client->uploadPart(key, uploadId, part, data);
}

std::string ProgressClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return m_client->copyPart(key, uploadId, part);
}

void ProgressClient::abortMultipartUpload(const std::string& key, const std::string& uploadId) {
    m_client->abortMultipartUpload(key, uploadId);
}

void ProgressClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                             const std::vector<PartInfo>& parts) {
    m_client->completeMultipartUpload(key, uploadId, parts);
}

std::optional<ProgressClient::ObjectDescription> ProgressClient::describeObject(const std::string& key) {
    return m_client->describeObject(key);
}

std::optional<ProgressClient::ObjectDescription> ProgressClient::describeWithStart(const std::string& key,
                                                                                   std::uint64_t most,
                                                                                   std::string& start) {
    auto description = m_client->describeWithStart(key, most, start);
    countFetched(start.size());
    return description;
}

void ProgressClient::getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                              std::ostream& sink) {
    m_client->getRange(key, version, range, sink);
    countFetched(range.Size);
}

std::string ProgressClient::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                      const std::string& version) {
    return m_client->copyRange(key, uploadId, part, version);
}

std::vector<ProgressClient::PartInfo> ProgressClient::copyRun(const std::string& key, const std::string& uploadId,
                                                              const std::vector<PartInfo>& run,
                                                              const std::string& version) {
    return m_client->copyRun(key, uploadId, run, version);
}

std::string ProgressClient::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                          const ExpectedObject& expected) {
    announceStoring();
    return m_client->putObjectOver(key, data, size, expected);
}

std::string ProgressClient::completeUploadOver(const std::string& key, const std::string& uploadId,
                                               const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    return m_client->completeUploadOver(key, uploadId, parts, expected);
}

bool ProgressClient::copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                                const ExpectedObject& expected) {
    return m_client->copyObject(from, fromVersion, to, expected);
}

void ProgressClient::removeObject(const std::string& key, const std::string& version) {
    m_client->removeObject(key, version);
}

void ProgressClient::deleteObjects(const std::vector<std::string>& keys) {
    m_client->deleteObjects(keys);
}

std::vector<storage::cloudprovider::UnfinishedUpload> ProgressClient::listUploads(const std::string& prefix,
                                                                                  std::string& token) {
    return m_client->listUploads(prefix, token);
}

storage::cloudprovider::StoreLimits ProgressClient::limits() const {
    return m_client->limits();
}

void ProgressClient::countFetched(std::uint64_t bytes) {
    const foundation::MutexLock lock(m_mutex);
    m_progress.advance(bytes);
}

void ProgressClient::announceStoring() {
    const foundation::MutexLock lock(m_mutex);
    m_progress.announceStoring();
}

}  // namespace cloudfs
