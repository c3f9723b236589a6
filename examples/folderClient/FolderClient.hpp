// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/CloudClient.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace example {

/// An object store in a folder of plain files, for one or more processes on one machine.
///
/// The object "notes/today.txt" is the file notes%/today.txt below the folder. Folders have a "%" at their end, so that
/// an object may have the name of a folder beside it; the object "notes/" is notes%/%marker. A "%" in a key becomes
/// %25, a "." that begins a component %2E, and a NUL byte %00. Files with other names are neither shown nor touched.
/// Uploads lie in the folder ".%uploads" there.
///
/// Content   replaced by renaming a complete file; on the disk, with its name, when the call returns.
/// Errors    as CloudClient; the file system's own words are in the text.
/// Threads   any. The class has no state but the folder's name.
class FolderClient : public storage::cloudprovider::CloudClient {
public:
    /// Open the store, made if it is missing, and drop what nobody has written to for a day: uploads, and what killed
    /// processes left.
    explicit FolderClient(std::filesystem::path folder);
    FolderClient(const FolderClient&) = default;
    FolderClient& operator=(const FolderClient&) = default;
    ~FolderClient() override;

    // CloudClient's operations, as it describes them.
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
    std::filesystem::path m_folder;
    std::filesystem::path m_uploads;  // in m_folder, so that a file can be renamed from there to its place
};

}  // namespace example
