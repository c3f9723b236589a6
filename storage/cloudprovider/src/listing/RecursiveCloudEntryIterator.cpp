// SPDX-License-Identifier: Apache-2.0
#include "listing/RecursiveCloudEntryIterator.hpp"

#include "support/host.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <vector>

namespace storage::cloudprovider {

RecursiveCloudEntryIterator::RecursiveCloudEntryIterator(host::StorageIRI folder, std::shared_ptr<CloudClient> client)
    : AbstractCloudEntryIterator(std::move(folder), std::move(client)) {
    fetchEntries(true);
}

std::string RecursiveCloudEntryIterator::getDelimiter() const {
    return {};
}

void RecursiveCloudEntryIterator::addEntry(const std::string& name, const ObjectInfo& item) {
    if (!utils::hasTrailingSlash(name)) {
        addParentFolders(name);
        appendFile(name, item);
        return;
    }
    const auto folder = name.substr(0, name.size() - 1);
    if (m_emittedFolders.insert(folder).second) {
        addParentFolders(folder);
        appendFolder(folder, item.LastModified);
    }
}

// Walks up to the nearest folder that was listed already, then down again; a key may have too many components
// for a recursion.
void RecursiveCloudEntryIterator::addParentFolders(const std::string& path) {
    std::vector<std::string> missing;
    for (auto end = path.rfind(utils::separator()); end != std::string::npos && end > 0;
         end = path.rfind(utils::separator(), end - 1)) {
        auto parent = path.substr(0, end);
        if (!m_emittedFolders.insert(parent).second) {
            break;
        }
        missing.push_back(std::move(parent));
    }
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
        appendFolder(*folder, boost::posix_time::second_clock::universal_time());
    }
}

}  // namespace storage::cloudprovider
