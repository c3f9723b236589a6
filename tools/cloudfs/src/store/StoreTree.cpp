// SPDX-License-Identifier: Apache-2.0
#include "store/StoreTree.hpp"

#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>

#include <memory>
#include <utility>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::FolderEntry;
using foundation::storage::provider::IFolderEntryIterator;
using foundation::storage::provider::IProvider;

namespace {

StoreEntry describe(const FolderEntry& entry) {
    StoreEntry description{foundation::toUtf8Lossy(entry.getName()), entry.isFolder(), 0, {}};
    if (entry.isFile()) {
        const auto attributes = entry.getFileAttributes();
        description.size = attributes.getSize().value_or(0);
        description.time = attributes.getLastModified();
    }
    return description;
}

// An empty store has a root all the same.
std::unique_ptr<IFolderEntryIterator> openListing(const IProvider& provider, const StorePath& folder) {
    try {
        return provider.listAllRecursive(folder.iri());
    } catch (const Exception& failure) {
        if (!folder.isRoot() || failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
        return nullptr;
    }
}

}  // namespace

std::vector<StoreEntry> listStoreTree(const IProvider& provider, const StorePath& folder) {
    std::vector<StoreEntry> entries;
    const auto listing = openListing(provider, folder);
    while (listing && listing->hasNext()) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        listing->next();
        entries.push_back(describe(listing->get()));
    }
    return entries;
}

}  // namespace cloudfs
