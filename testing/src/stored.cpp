// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/testing/stored.hpp>

#include <sstream>

namespace storage::cloudprovider::test {

std::optional<std::string> contentOf(CloudClient& store, const std::string& key) {
    if (!store.getObjectInfo(key)) {
        return std::nullopt;
    }
    std::ostringstream sink;
    store.getObject(key, sink, 0, 0);
    return sink.str();
}

std::map<std::string, std::string> contentsOf(CloudClient& store) {
    std::map<std::string, std::string> contents;
    std::string token;
    do {
        for (const auto& object : store.listObjects("", token, {})) {
            contents[object.Key] = contentOf(store, object.Key).value_or("is gone");
        }
    } while (!token.empty());
    return contents;
}

void storeObject(CloudClient& store, const std::string& key, const std::string& bytes,
                 const std::vector<std::uint64_t>& partSizes) {
    if (partSizes.empty()) {
        std::istringstream data(bytes);
        return store.putObject(key, data, bytes.size());
    }
    const auto upload = store.startMultipartUpload(key, "");
    std::vector<PartInfo> parts;
    std::uint64_t offset = 0;
    for (const auto size : partSizes) {
        PartInfo part{parts.size(), offset, size, ""};
        std::istringstream data(bytes.substr(offset, size));
        part.Tag = store.uploadPart(key, upload, part, data);
        parts.push_back(part);
        offset += size;
    }
    store.completeMultipartUpload(key, upload, parts);
}

}  // namespace storage::cloudprovider::test
