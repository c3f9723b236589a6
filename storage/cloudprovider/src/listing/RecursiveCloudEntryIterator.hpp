// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "listing/AbstractCloudEntryIterator.hpp"
#include "support/host.hpp"

#include <set>

namespace storage::cloudprovider {

/// Lists everything below a folder, each folder right before the first object that reveals it, outermost
/// first. Memory grows with the number of folders listed, not with that of files.
class RecursiveCloudEntryIterator : public AbstractCloudEntryIterator<RecursiveCloudEntryIterator> {
public:
    RecursiveCloudEntryIterator(host::StorageIRI folder, std::shared_ptr<CloudClient> client);

    std::string getDelimiter() const override;
    void addEntry(const std::string& name, const ObjectInfo& item) override;

private:
    void addParentFolders(const std::string& path);

    std::set<std::string> m_emittedFolders;  // relative paths without a trailing "/"
};

}  // namespace storage::cloudprovider
