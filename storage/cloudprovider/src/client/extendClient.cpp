// SPDX-License-Identifier: Apache-2.0
#include "client/extendClient.hpp"

#include <utility>

namespace storage::cloudprovider {

namespace {

class WrappedClient final : public ExtendedCloudClient {
public:
    explicit WrappedClient(std::shared_ptr<CloudClient> client) : m_client(std::move(client)) {}

    const CloudClient* original() const noexcept { return m_client.get(); }

    boost::optional<ObjectInfo> getObjectInfo(const std::string& key) override { return m_client->getObjectInfo(key); }
    void checkObjectName(const std::string& name) override { m_client->checkObjectName(name); }
    std::vector<ObjectInfo> listObjects(const std::string& prefix, std::string& token,
                                        const ListOptions& options) override {
        return m_client->listObjects(prefix, token, options);
    }
    void deleteObject(const std::string& key) override { m_client->deleteObject(key); }
    void getObject(const std::string& key, std::ostream& sink, std::uint64_t first, std::uint64_t last) override {
        m_client->getObject(key, sink, first, last);
    }
    void putObject(const std::string& key, std::istream& data, std::uint64_t size) override {
        m_client->putObject(key, data, size);
    }
    std::vector<PartInfo> getObjectParts(const std::string& key) override { return m_client->getObjectParts(key); }
    std::string startMultipartUpload(const std::string& key, const std::string& lastTag) override {
        return m_client->startMultipartUpload(key, lastTag);
    }
    std::string uploadPart(const std::string& key, const std::string& uploadId, const PartInfo& part,
                           std::istream& data) override {
        return m_client->uploadPart(key, uploadId, part, data);
    }
    std::string copyPart(const std::string& key, const std::string& uploadId, const PartInfo& part) override {
        return m_client->copyPart(key, uploadId, part);
    }
    void abortMultipartUpload(const std::string& key, const std::string& uploadId) override {
        m_client->abortMultipartUpload(key, uploadId);
    }
    void completeMultipartUpload(const std::string& key, const std::string& uploadId,
                                 const std::vector<PartInfo>& parts) override {
        m_client->completeMultipartUpload(key, uploadId, parts);
    }

private:
    const std::shared_ptr<CloudClient> m_client;
};

}  // namespace

std::shared_ptr<ExtendedCloudClient> extendClient(std::shared_ptr<CloudClient> client) {
    if (auto extended = std::dynamic_pointer_cast<ExtendedCloudClient>(client)) {
        return extended;
    }
    return std::make_shared<WrappedClient>(std::move(client));
}

const CloudClient* originalOf(const std::shared_ptr<CloudClient>& client) noexcept {
    const auto* const wrapped = dynamic_cast<const WrappedClient*>(client.get());
    return wrapped != nullptr ? wrapped->original() : client.get();
}

bool mayTellVersions(const ExtendedCloudClient& client) noexcept {
    return dynamic_cast<const WrappedClient*>(&client) == nullptr;
}

}  // namespace storage::cloudprovider
