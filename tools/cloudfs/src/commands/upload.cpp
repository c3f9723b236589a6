// SPDX-License-Identifier: Apache-2.0
#include "commands/upload.hpp"

#include "commands/RepeatedEdit.hpp"
#include "local/LocalSource.hpp"
#include "local/LocalTree.hpp"
#include "store/StoreFile.hpp"
#include "store/StorePath.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <numeric>
#include <vector>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using storage::cloudprovider::FolderPolicy;

namespace {

using Options = ByteStreamOpenOptions;

constexpr Options kAppend{Options::Access::WriteOnly, Options::ExistingContent::Preserve, Options::Presence::Optional,
                          Options::WriteMode::Append};
constexpr Options kOverwrite{Options::Access::WriteOnly, Options::ExistingContent::Preserve,
                             Options::Presence::Required, Options::WriteMode::Positioned};

void putFile(const IProvider& provider, LocalSource& source, const StorePath& path, ProgressBar& progress) {
    StoreFileWriter writer(provider, path);
    writer.writeAll(source, progress);
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

void failIfStore(const Session& session, const std::string& local) {
    if (local != kStandardStream) {
        session.files().failIfContain(local);
    }
}

void putTree(const Session& session, const std::string& local, const StorePath& path) {
    const auto entries = scanLocalFolder(local, session.files());
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

void put(const Session& session, const std::string& local, const std::string& path, bool isRecursive) {
    const StorePath storePath(path);
    if (local != kStandardStream) {
        failUnlessUtf8(local);
        if (isLocalFolder(local)) {
            if (!isRecursive) {
                throw Failure(ErrorCode::InvalidLocation, local, "is a folder; put -r copies folders");
            }
            putTree(session, local, storePath);
            return;
        }
    }
    failIfStore(session, local);
    LocalSource source(local);
    failUnlessNameable(storePath, localName(local));  // before a store is made
    const auto provider = session.open(MissingStore::Create);
    const auto place = placeFor(*provider, storePath, localName(local));
    ProgressBar progress(source.size());
    putFile(*provider, source, place, progress);
}

void append(const Session& session, const std::string& local, const std::string& path) {
    const StorePath storePath(path);
    failIfMeansFolder(storePath);
    failIfStore(session, local);
    LocalSource source(local, LocalSource::Reading::Repeated);
    const auto provider = session.open(MissingStore::Create);
    failIfFolder(*provider, storePath);
    RepeatedEdit(source).run([&](ProgressBar& progress) {
        StoreFileWriter writer(*provider, storePath, kAppend);
        const auto appended = writer.writeAll(source, progress);
        writer.store(progress);
        // A stream that wrote nothing leaves an absent file absent.
        if (appended == 0 && !provider->fileExists(storePath.iri())) {
            provider->createFile(storePath.iri());
        }
    });
}

void writeAt(const Session& session, std::int64_t offset, const std::string& local, const std::string& path) {
    const StorePath storePath(path);
    failIfStore(session, local);
    LocalSource source(local, LocalSource::Reading::Repeated);
    const auto provider = session.open(MissingStore::Refuse);
    failIfFolder(*provider, storePath);
    RepeatedEdit(source).run([&](ProgressBar& progress) {
        StoreFileWriter writer(*provider, storePath, kOverwrite);
        writer.seek(offset);
        writer.writeAll(source, progress);
        writer.store(progress);
    });
}

}  // namespace cloudfs
