// SPDX-License-Identifier: Apache-2.0
#include "FaultyClient.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <string_view>
#include <utility>

namespace soak {

using storage::cloudprovider::ExpectedObject;
using storage::cloudprovider::ListOptions;
using storage::cloudprovider::ObjectDescription;
using storage::cloudprovider::ObjectInfo;
using storage::cloudprovider::ObjectRange;
using storage::cloudprovider::PartInfo;
using storage::cloudprovider::StoreLimits;
using storage::cloudprovider::UnfinishedUpload;

namespace {

constexpr std::string_view kMark = "injected fault";

}  // namespace

FaultyClient::FaultyClient(std::shared_ptr<ExtendedCloudClient> store) : m_store(std::move(store)) {
    setFault([] {
        throw storage::cloudprovider::UnknownErrorException(
            foundation::storage::provider::ExceptionContext(std::string(kMark)));
    });
}

FaultyClient::~FaultyClient() = default;

boost::optional<ObjectInfo> FaultyClient::getObjectInfo(const std::string& key) {
    return perform({.operation = "getObjectInfo", .key = key}, [&] { return m_store->getObjectInfo(key); });
}

void FaultyClient::checkObjectName(const std::string& name) {
    perform({.operation = "checkObjectName", .key = name}, [&] { m_store->checkObjectName(name); });
}

// A lost page is asked for again with the token that it was asked for with.
std::vector<ObjectInfo> FaultyClient::listObjects(const std::string& prefix, std::string& token,
                                                  const ListOptions& options) {
    std::string next = token;
    auto page = perform({.operation = "listObjects", .key = prefix},
                        [&] { return m_store->listObjects(prefix, next, options); });
    token = std::move(next);
    return page;
}

void FaultyClient::deleteObject(const std::string& key) {
    perform({.operation = "deleteObject", .key = key}, [&] { m_store->deleteObject(key); });
}

void FaultyClient::getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) {
    perform({.operation = "getObject", .key = key}, [&] { m_store->getObject(key, sink, first, last); });
}

void FaultyClient::putObject(const std::string& key, std::istream& data, std::uint64_t size) {
    perform({.operation = "putObject", .key = key}, [&] { m_store->putObject(key, data, size); });
}

std::vector<PartInfo> FaultyClient::getObjectParts(const std::string& key) {
    return perform({.operation = "getObjectParts", .key = key}, [&] { return m_store->getObjectParts(key); });
}

std::string FaultyClient::startMultipartUpload(const std::string& key, const std::string& lastTag) {
    perform({.operation = "startMultipartUpload", .key = key}, [] {});
    return m_store->startMultipartUpload(key, lastTag);
}

std::string FaultyClient::uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                     std::istream& data) {
    return perform({.operation = "uploadPart", .key = key},
                   [&] { return m_store->uploadPart(key, uploadId, part, data); });
}

std::string FaultyClient::copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) {
    return perform({.operation = "copyPart", .key = key}, [&] { return m_store->copyPart(key, uploadId, part); });
}

void FaultyClient::abortMultipartUpload(const std::string& key, const std::string& uploadId) {
    m_store->abortMultipartUpload(key, uploadId);
}

void FaultyClient::completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                           const std::vector<PartInfo>& parts) {
    perform({.operation = "completeMultipartUpload", .key = key},
            [&] { m_store->completeMultipartUpload(key, uploadId, parts); });
}

std::optional<ObjectDescription> FaultyClient::describeObject(const std::string& key) {
    return perform({.operation = "describeObject", .key = key}, [&] { return m_store->describeObject(key); });
}

void FaultyClient::getRange(const std::string& key, const std::string& version, const ObjectRange& range,
                            std::ostream& sink) {
    perform({.operation = "getRange", .key = key}, [&] { m_store->getRange(key, version, range, sink); });
}

std::string FaultyClient::copyRange(const std::string& key, const std::string& uploadId, const PartInfo& part,
                                    const std::string& version) {
    return perform({.operation = "copyRange", .key = key},
                   [&] { return m_store->copyRange(key, uploadId, part, version); });
}

std::vector<PartInfo> FaultyClient::copyRun(const std::string& key, const std::string& uploadId,
                                            const std::vector<PartInfo>& run, const std::string& version) {
    return perform({.operation = "copyRun", .key = key}, [&] { return m_store->copyRun(key, uploadId, run, version); });
}

std::string FaultyClient::putObjectOver(const std::string& key, std::istream& data, std::uint64_t size,
                                        const ExpectedObject& expected) {
    return perform({.operation = "putObjectOver", .key = key},
                   [&] { return m_store->putObjectOver(key, data, size, expected); });
}

std::string FaultyClient::completeUploadOver(const std::string& key, const std::string& uploadId,
                                             const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    return perform({.operation = "completeUploadOver", .key = key},
                   [&] { return m_store->completeUploadOver(key, uploadId, parts, expected); });
}

bool FaultyClient::copyObject(const std::string& from, const std::string& fromVersion, const std::string& to,
                              const ExpectedObject& expected) {
    return perform({.operation = "copyObject", .key = from},
                   [&] { return m_store->copyObject(from, fromVersion, to, expected); });
}

void FaultyClient::removeObject(const std::string& key, const std::string& version) {
    perform({.operation = "removeObject", .key = key}, [&] { m_store->removeObject(key, version); });
}

void FaultyClient::deleteObjects(const std::vector<std::string>& keys) {
    perform({.operation = "deleteObjects"}, [&] { m_store->deleteObjects(keys); });
}

std::vector<UnfinishedUpload> FaultyClient::listUploads(const std::string& prefix, std::string& token) {
    return m_store->listUploads(prefix, token);
}

StoreLimits FaultyClient::limits() const {
    return m_store->limits();
}

bool isInjected(const std::exception& failure) {
    return std::string_view(failure.what()).find(kMark) != std::string_view::npos;
}

}  // namespace soak
