// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/SyncSide.hpp"
#include "local/LocalStoreFiles.hpp"
#include "local/LocalTree.hpp"

namespace cloudfs::commands {

/// A local folder as a side of a sync.
class LocalSide : public SyncSide {
public:
    LocalSide(std::string root, LocalStoreFiles storeFiles, Links links);

    /// Refuse what is one of the store's own files, or would become one. Errors: Failure.
    void failIfStore(const std::string& name) const { m_storeFiles.failIfContain(textOf(name)); }

    std::string textOf(const std::string& name) const override;
    SyncListing list(const ExcludedNames& isExcluded, FileTransfers& transfers) const override;
    std::vector<std::string> makeFolders(const std::vector<std::string>& names,
                                         FileTransfers& transfers) const override;
    /// Neither goes through a symbolic link.
    void remove(const std::string& name, const SyncEntry& listed) const override;
    void removeFolder(const std::string& name) const override;

private:
    const std::string m_root;
    const LocalStoreFiles m_storeFiles;
    const Links m_links;
};

}  // namespace cloudfs::commands
