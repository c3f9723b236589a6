// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/sqlite/SqliteClient.hpp>

#include <sstream>

namespace storage::cloudprovider::test {

inline void put(CloudClient& client, const std::string& key, const std::string& bytes) {
    std::istringstream data(bytes);
    client.putObject(key, data, bytes.size());
}

inline std::string get(CloudClient& client, const std::string& key, unsigned first = 0, unsigned last = 0) {
    std::ostringstream sink;
    client.getObject(key, sink, first, last);
    return sink.str();
}

/// Send bytes as the next part, and note it in parts.
inline void send(CloudClient& client, const std::string& id, std::vector<PartInfo>& parts, const std::string& bytes) {
    std::istringstream data(bytes);
    parts.push_back({parts.size(), 0, bytes.size(), {}});
    parts.back().Tag = client.uploadPart("k", id, parts.back(), data);
}

inline void copy(CloudClient& client, const std::string& id, std::vector<PartInfo>& parts, unsigned offset,
                 std::size_t size) {
    parts.push_back({parts.size(), offset, size, {}});
    parts.back().Tag = client.copyPart("k", id, parts.back());
}

/// The content of a version: its size and each of its bytes tell the version.
inline std::string makeVersion(int version) {
    std::string bytes(600'000 + static_cast<unsigned>(version) % 8 * 100'000, static_cast<char>(version));
    return bytes;
}

}  // namespace storage::cloudprovider::test
