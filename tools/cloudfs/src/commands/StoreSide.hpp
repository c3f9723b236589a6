// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/SyncSide.hpp"
#include "store/Session.hpp"
#include "store/StorePath.hpp"

#include <memory>

namespace cloudfs::commands {

/// A folder of the store as a side of a sync.
class StoreSide : public SyncSide {
public:
    StoreSide(const Session& session, StorePath root, MissingStore missing);

    const IProvider& provider() const noexcept { return *m_provider; }
    StorePath pathOf(const std::string& name) const { return name.empty() ? m_root : m_root.child(name); }

    std::string textOf(const std::string& name) const override { return "store:" + pathOf(name).text(); }
    SyncListing list(const ExcludedNames& isExcluded, FileTransfers& transfers) const override;
    std::vector<std::string> makeFolders(const std::vector<std::string>& names,
                                         FileTransfers& transfers) const override;
    void remove(const std::string& name, const SyncEntry& listed) const override;
    void removeFolder(const std::string& name) const override;

private:
    bool isAsListed(const std::string& key, const SyncEntry& listed) const;

    const StorePath m_root;
    const bool m_hasFolders;
    const std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> m_client;
    const std::shared_ptr<IProvider> m_provider;
};

}  // namespace cloudfs::commands
