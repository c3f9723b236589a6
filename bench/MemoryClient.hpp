// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Arena.hpp"

#include <storage/cloudprovider/CloudClient.hpp>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace bench {

/// An object store in memory, so quick that what is measured through it is the provider.
///
/// Objects consist of pieces, each in one slab of an arena, all of the same size; copying a part shares its
/// slab. Flat: it lists nothing. Throws what CloudClient tells. Threads: any.
class MemoryClient final : public storage::cloudprovider::CloudClient {
public:
    enum class Keep {
        Bytes,
        /// All pieces lie in one slab: any number of bytes may be stored, only the layout of objects is true.
        Layout
    };

    /// How often it was called, and how many bytes went each way.
    struct Counts {
        std::uint64_t downloads = 0;
        std::uint64_t puts = 0;
        std::uint64_t uploads = 0;
        std::uint64_t copies = 0;
        std::uint64_t bytesDown = 0;
        std::uint64_t bytesUp = 0;
    };

    /// arena must live as long as the client.
    MemoryClient(const Arena& arena, std::uint64_t slabSize, Keep keep = Keep::Bytes);

    /// Make an object of any bytes, in pieces of slabSize.
    void makeObject(const std::string& key, std::uint64_t size);

    /// The counts since the last call.
    Counts takeCounts();

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

private:
    struct Piece {
        std::shared_ptr<char> bytes;
        std::uint64_t size = 0;
    };
    using Object = std::vector<Piece>;

    // With m_mutex held.
    std::shared_ptr<char> takeSlab();
    Piece receive(std::istream& data, std::uint64_t size);
    const Object& findObject(const std::string& key) const;

    const std::uint64_t m_slabSize;
    const Keep m_keep;

    // Slabs come back when their last piece goes, which may be after the client has gone.
    const std::shared_ptr<std::vector<char*>> m_freeSlabs;

    // Guards what follows, and the free slabs.
    std::mutex m_mutex;
    std::map<std::string, Object> m_objects;
    std::map<std::string, std::map<std::uint64_t, Piece>> m_uploads;  // parts by index
    std::uint64_t m_lastUpload = 0;
    Counts m_counts;
};

}  // namespace bench
