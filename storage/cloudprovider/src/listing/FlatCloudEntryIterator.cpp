// SPDX-License-Identifier: Apache-2.0
#include "listing/FlatCloudEntryIterator.hpp"

#include "support/host.hpp"

namespace storage::cloudprovider {

FlatCloudEntryIterator::FlatCloudEntryIterator(host::StorageIRI folder, Filter filter,
                                               std::shared_ptr<CloudClient> client)
    : AbstractCloudEntryIterator(std::move(folder), std::move(client)), m_filter(filter) {
    fetchEntries(true);
}

std::string FlatCloudEntryIterator::getDelimiter() const {
    return {utils::separator()};
}

void FlatCloudEntryIterator::addEntry(const std::string& name, const ObjectInfo& item) {
    if (utils::hasTrailingSlash(name)) {
        if (m_filter != Filter::Files) {
            appendFolder(name.substr(0, name.size() - 1), item.LastModified);
        }
    } else if (m_filter != Filter::Folders) {
        appendFile(name, item);
    }
}

}  // namespace storage::cloudprovider
