// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "listing/AbstractCloudEntryIterator.hpp"
#include "support/host.hpp"

#include <cstdint>

namespace storage::cloudprovider {

/// Lists what lies directly inside a folder. The store folds deeper objects into one item per sub-folder.
class FlatCloudEntryIterator : public AbstractCloudEntryIterator<FlatCloudEntryIterator> {
public:
    enum class Filter : std::uint32_t { Files = 0, Folders = 1, All = 2 };

    FlatCloudEntryIterator(host::StorageIRI folder, Filter filter, std::shared_ptr<CloudClient> client);

    std::string getDelimiter() const override;
    void addEntry(const std::string& name, const ObjectInfo& item) override;

private:
    Filter m_filter;
};

}  // namespace storage::cloudprovider
