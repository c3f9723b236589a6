// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "local/LocalStoreFiles.hpp"
#include "local/LocalTarget.hpp"
#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace cloudfs {

class ProgressBar;

}  // namespace cloudfs

namespace cloudfs::commands {

class FileTransfers;

/// A file of the store and the local one that it becomes.
struct Download {
    StorePath from;
    std::string to;
    LocalTarget::Links links = LocalTarget::Links::Replace;
    std::uint64_t size = 0;
    boost::posix_time::ptime time;  ///< what the store tells, and the local file gets
};

/// Copy one file out of the store. It begins again when the file is replaced meanwhile.
///
/// Errors   Failure, Exception, OperationInterrupted.
void getFile(const foundation::storage::provider::IProvider& provider, const Download& download, ProgressBar& progress);

/// What is to be copied out of the store, gathered before anything is. What cannot be a local file, would be written
/// twice, or has the name of a folder, is noted as a failure.
class GetPlan {
public:
    /// Both have to outlive this. storeFiles: what is never written to.
    GetPlan(LocalStoreFiles storeFiles, FileTransfers& transfers);

    /// Add a file. Errors: none, but those of memory.
    void addFile(Download download);

    /// Add what is below a folder of the store, which goes to the local folder root.
    ///
    /// Values   links: whether root may be a link to a folder.
    /// Errors   Exception, OperationInterrupted.
    void addTree(const foundation::storage::provider::IProvider& provider, const StorePath& path,
                 const std::string& root, LocalTarget::Links links);

    /// Make the local folders. What would go into one that cannot be made is given up with it: a link in its place may
    /// lead anywhere. Errors: OperationInterrupted.
    void makeFolders();

    const std::vector<Download>& files() const noexcept { return m_files; }
    /// Bytes.
    std::uint64_t size() const;

private:
    // The root of a tree may be a link to a folder where that is what the user named.
    struct Folder {
        std::string path;
        LocalTarget::Links links = LocalTarget::Links::Replace;
    };

    void fail(const StorePath& path, const char* cause);
    void dropBelow(const std::string& folder);

    const LocalStoreFiles m_storeFiles;
    FileTransfers& m_transfers;
    std::vector<Download> m_files;
    std::vector<Folder> m_folders;  // each after the one that it is in
    std::set<std::string> m_targets;
};

}  // namespace cloudfs::commands
