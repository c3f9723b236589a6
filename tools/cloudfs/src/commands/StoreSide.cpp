// SPDX-License-Identifier: Apache-2.0
#include "commands/StoreSide.hpp"

#include "commands/FileTransfers.hpp"
#include "store/StoreTree.hpp"
#include "store/operands.hpp"
#include "terminal/failures.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <utility>

namespace cloudfs::commands {

using boost::posix_time::ptime;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using storage::cloudprovider::FolderPolicy;
using storage::cloudprovider::ResourceInUseException;
using storage::cloudprovider::ResourceNotFoundException;

namespace {

std::int64_t toMicroseconds(const ptime& time) {
    static const ptime kEpoch(boost::gregorian::date(1970, 1, 1));
    return time.is_special() ? kUnknownTime : (time - kEpoch).total_microseconds();
}

}  // namespace

StoreSide::StoreSide(const Session& session, StorePath root, MissingStore missing)
    : m_root(std::move(root)),
      m_hasFolders(session.folderPolicy == FolderPolicy::MarkerObjects),
      m_client(session.openClient(missing)),
      m_provider(session.providerFor(m_client)) {}

SyncListing StoreSide::list(const ExcludedNames& isExcluded, FileTransfers& /*transfers*/) const {
    SyncListing listing;
    for (const auto& entry : listStoreTree(*m_provider, m_root)) {
        if (isExcluded(entry.name)) {
            continue;
        }
        const SyncEntry described{entry.isFolder, entry.size, toMicroseconds(entry.time)};
        const auto [place, isNew] = listing.entries.insert({entry.name, described});
        if (!isNew) {
            listing.hidden.push_back(entry.name);
            place->second = entry.isFolder ? described : place->second;
        }
    }
    return listing;
}

std::vector<std::string> StoreSide::makeFolders(const std::vector<std::string>& names, FileTransfers& transfers) const {
    std::vector<std::string> failed;
    if (m_hasFolders) {
        m_provider->createFolderRecursive(m_root.iri());
        for (const auto& name : names) {
            transfers.attempt([&] {
                failed.push_back(name);
                m_provider->createFolderRecursive(pathOf(name).iri());
                failed.pop_back();
            });
        }
    }
    return failed;
}

void StoreSide::remove(const std::string& name, const SyncEntry& listed) const {
    const auto path = pathOf(name);
    const auto changed = [&] { return Failure(ErrorCode::InUse, path.text(), "was changed meanwhile, and stays"); };
    try {
        const auto description = m_client->describeObject(path.key());
        if (!description) {
            return;
        }
        if (!isAsListed(path.key(), listed)) {
            throw changed();
        }
        m_client->removeObject(path.key(), description->Version);
    } catch (const ResourceNotFoundException&) {
        return;
    } catch (const ResourceInUseException&) {
        throw changed();
    } catch (const storage::cloudprovider::CloudException& failure) {
        throw Failure(failure.getErrorCode(), path.text(), failure.what());
    }
}

// Listed once more: a store may tell times in another precision where it is asked for a single object. The key itself
// comes before all others that begin with it.
bool StoreSide::isAsListed(const std::string& key, const SyncEntry& listed) const {
    std::string token;
    do {
        const auto entries = m_client->listObjects(key, token, {{}, 1});
        if (!entries.empty()) {
            const auto& entry = entries.front();
            return entry.Key == key && entry.Size == listed.size && toMicroseconds(entry.LastModified) == listed.time;
        }
    } while (!token.empty());
    return false;
}

void StoreSide::removeFolder(const std::string& name) const {
    try {
        m_provider->removeFolder(pathOf(name).iri());
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::FolderNotEmpty && failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
    }
}

}  // namespace cloudfs::commands
