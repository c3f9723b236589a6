// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/buildCloudProvider.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cloudfs {

class LocalSource;
class ProgressBar;
struct LocalEntry;

}  // namespace cloudfs

namespace cloudfs::commands {

/// A local file and the file of the store that it becomes.
struct Upload {
    std::string from;
    StorePath to;
    std::uint64_t size = 0;
    /// The file, where it was opened before; else null.
    std::shared_ptr<LocalSource> source{};
};

/// Copy one file into the store. Errors: Failure, Exception, OperationInterrupted.
void putFile(const foundation::storage::provider::IProvider& provider, const Upload& upload, ProgressBar& progress);

/// What is to be copied into the store, gathered before anything is.
class PutPlan {
public:
    void addFile(Upload upload) { m_files.push_back(std::move(upload)); }

    /// Add what was found below a local folder, which goes to the folder root of the store.
    void addTree(const std::vector<LocalEntry>& entries, const StorePath& root);

    const std::vector<Upload>& files() const noexcept { return m_files; }
    /// Folders of the store without a folder below them in the plan: those above are made with them.
    const std::vector<StorePath>& folders() const noexcept { return m_folders; }
    /// Bytes.
    std::uint64_t size() const;

private:
    std::vector<Upload> m_files;
    std::vector<StorePath> m_folders;
};

}  // namespace cloudfs::commands
