// SPDX-License-Identifier: Apache-2.0
#include "commands/put.hpp"

#include "commands/localOperands.hpp"
#include "local/LocalSource.hpp"
#include "local/LocalTree.hpp"
#include "store/StoreFileWriter.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <cstdint>
#include <numeric>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using storage::cloudprovider::FolderPolicy;

namespace {

void putFile(const IProvider& provider, LocalSource& source, const StorePath& path, ProgressBar& progress) {
    StoreFileWriter writer(provider, path);
    writeAll(source, writer, progress);
    writer.store(progress);
}

// Folders are made as such where the store can hold them, so that empty ones are kept.
void putFolder(const IProvider& provider, const StorePath& path, FolderPolicy policy) {
    if (policy == FolderPolicy::MarkerObjects) {
        provider.createFolderRecursive(path.iri());
    }
}

// The folder that a copied folder becomes: a new one below an existing one, as with files. A local name such
// as "." has no name to give; its contents are put into the folder itself.
StorePath folderPlaceFor(const IProvider& provider, const StorePath& path, const std::string& name) {
    const bool goesInto = !name.empty() && (path.meansFolder() || provider.folderExists(path.iri()));
    auto place = goesInto ? path.child(name) : path;
    if (!place.isRoot() && provider.fileExists(place.iri())) {
        throw Failure(ErrorCode::AlreadyExists, place.text(), "is a file");
    }
    return place;
}

void putTree(const Session& session, const std::string& local, const StorePath& path) {
    const auto entries = scanLocalFolder(local, filesOf(session));
    const auto total = std::accumulate(entries.begin(), entries.end(), std::uint64_t{0},
                                       [](std::uint64_t sum, const LocalEntry& entry) { return sum + entry.size; });
    const auto provider = session.open(MissingStore::Create);
    const auto root = folderPlaceFor(*provider, path, localName(local));
    ProgressBar progress(total);
    putFolder(*provider, root, session.folderPolicy);
    for (const auto& entry : entries) {
        const auto place = root.child(entry.name);
        if (entry.isFolder) {
            putFolder(*provider, place, session.folderPolicy);
        } else {
            LocalSource source(entry.path);
            putFile(*provider, source, place, progress);
        }
    }
}

}  // namespace

void put(const Session& session, const PutRequest& request) {
    const StorePath path(request.path);
    if (request.local != kStandardStream) {
        failUnlessUtf8(request.local);
        if (isLocalFolder(request.local)) {
            if (!request.isRecursive) {
                throw Failure(ErrorCode::InvalidLocation, request.local, "is a folder; put -r copies folders");
            }
            putTree(session, request.local, path);
            return;
        }
    }
    failIfStore(session, request.local);
    LocalSource source(request.local);
    const auto name = localName(request.local);
    failUnlessNameable(path, name);  // before a store is made
    const auto provider = session.open(MissingStore::Create);
    const auto place = placeFor(*provider, path, name);
    ProgressBar progress(source.size());
    putFile(*provider, source, place, progress);
}

}  // namespace cloudfs::commands
