// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace bench {

/// How far away a store is. Every connection has both to itself, and every call has a connection.
struct Distance {
    std::chrono::microseconds latency{};  ///< of each call
    std::uint64_t bytesPerSecond = 0;     ///< of what travels in one call, each way; 0: in no time
};

/// An object store behind a slow line: each call takes as long as its distance says, by sleeping, and any number of
/// calls are under way at once.
///
/// Keeps how objects are divided, but no bytes: what is written is read and dropped, and what is read is made up by
/// position, see isContent. Copies inside the store take the latency alone, a run of parts in one request. It tells
/// versions. Flat: it lists nothing. Throws what ExtendedCloudClient tells. Threads: any.
class DistantClient final : public storage::cloudprovider::ExtendedCloudClient {
public:
    /// The requests since some moment, by their kind, such as "copy a run".
    using Requests = std::map<std::string, std::uint64_t>;

    explicit DistantClient(Distance distance);

    /// Make an object in parts of partSize.
    void makeObject(const std::string& key, std::uint64_t size, std::uint64_t partSize);

    /// The size of an object in bytes; 0 when there is none. No request.
    std::uint64_t sizeOf(const std::string& key) const;

    /// The requests since the last call.
    Requests takeRequests();

    /// Whether bytes are those that every object has at that position, which is a multiple of 8.
    static bool isContent(const char* bytes, std::size_t count, std::uint64_t position);

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

private:
    class Request;
    using Object = storage::cloudprovider::ObjectDescription;
    using Upload = std::map<std::uint64_t, storage::cloudprovider::PartInfo>;  // by index

    // With m_mutex held.
    std::string nextText(const char* prefix);
    const Object* find(const std::string& key) const;
    const Object& findVersion(const std::string& key, const std::string& version) const;
    void refuseUnlessMet(const std::string& key, const storage::cloudprovider::ExpectedObject& expected) const;
    std::string replace(const std::string& key, std::vector<storage::cloudprovider::PartInfo> parts);

    const Distance m_distance;

    // Guards what follows.
    mutable std::mutex m_mutex;
    std::map<std::string, Object> m_objects;
    std::map<std::string, Upload> m_uploads;
    std::uint64_t m_lastText = 0;
    Requests m_requests;
};

}  // namespace bench
