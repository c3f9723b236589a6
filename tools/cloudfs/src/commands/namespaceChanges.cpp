// SPDX-License-Identifier: Apache-2.0
#include "commands/namespaceChanges.hpp"

#include "store/ProgressClient.hpp"
#include "store/StoreFile.hpp"
#include "store/StorePath.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using storage::cloudprovider::FolderPolicy;

namespace {

bool isFile(const IProvider& provider, const StorePath& path) {
    return !path.meansFolder() && provider.fileExists(path.iri());
}

// Whether only a folder can be meant by a path, as there is no such file.
bool isFolder(const IProvider& provider, const StorePath& path) {
    return !isFile(provider, path) && provider.folderExists(path.iri());
}

// An empty store has a root all the same, though there is nothing in it to remove.
void removeTree(const IProvider& provider, const StorePath& path) {
    try {
        provider.removeFolderRecursively(path.iri());
    } catch (const Exception& failure) {
        if (!path.isRoot() || failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
    }
}

[[noreturn]] void failWithoutParent(const StorePath& parent) {
    throw Failure(ErrorCode::NotFound, parent.text(), "there is no such folder; mkdir -p makes it");
}

struct TransferRequest {
    StorePath from;
    StorePath to;
    ReplacementPolicy policy;
};

void failIfTaken(const IProvider& provider, const StorePath& place, ReplacementPolicy policy) {
    if (policy == ReplacementPolicy::Fail && provider.fileExists(place.iri())) {
        throw Failure(ErrorCode::AlreadyExists, place.text(), "exists already; --replace replaces it");
    }
}

// operation: moveFile or copyFile.
template <typename Operation>
void transfer(const Session& session, const TransferRequest& request, const char* refusalOfFolders,
              Operation operation) {
    const auto client = session.openClient(MissingStore::Refuse);
    const auto provider = session.providerFor(client);
    if (isFolder(*provider, request.from)) {
        throw Failure(ErrorCode::Unsupported, request.from.text(), refusalOfFolders);
    }
    const auto size = sizeOf(*provider, request.from);
    const auto place = placeFor(*provider, request.to, request.from.name());
    failIfTaken(*provider, place, request.policy);
    ProgressBar progress(size);
    const auto showing = session.providerFor(std::make_shared<ProgressClient>(client, progress));
    namingPath(place.text(), [&] { ((*showing).*operation)(request.from.iri(), place.iri(), request.policy); });
}

}  // namespace

void touch(const Session& session, const std::string& path) {
    const StorePath storePath(path);
    failIfMeansFolder(storePath);
    const auto provider = session.open(MissingStore::Create);
    if (isFolder(*provider, storePath)) {
        throw Failure(ErrorCode::AlreadyExists, storePath.text(), "is a folder");
    }
    provider->createFile(storePath.iri());
}

void makeFolder(const Session& session, const std::string& path, bool parents) {
    const StorePath storePath(path);
    if (session.folderPolicy == FolderPolicy::ImplicitFolders) {
        throw Failure(ErrorCode::Unsupported, storePath.text(), "folders exist only while files are in them");
    }
    if (storePath.isRoot() && !parents) {
        throw Failure(ErrorCode::AlreadyExists, storePath.text(), "is always there");
    }
    const auto parent = storePath.parent();
    const bool needsParent = !parents && !parent.isRoot();
    if (needsParent && !session.hasStore()) {
        failWithoutParent(parent);  // rather than make a store
    }
    const auto provider = session.open(MissingStore::Create);
    if (parents) {
        provider->createFolderRecursive(storePath.iri());
        return;
    }
    if (needsParent && !provider->folderExists(parent.iri())) {
        failWithoutParent(parent);
    }
    provider->createFolder(storePath.iri());
}

void remove(const Session& session, const std::string& path, bool isRecursive) {
    const StorePath storePath(path);
    const auto provider = session.open(MissingStore::Refuse);
    const bool removesFile = isFile(*provider, storePath);
    const bool hasFolder = provider->folderExists(storePath.iri());
    if (!removesFile && !hasFolder) {
        throw Failure(ErrorCode::NotFound, storePath.text(), "there is no such file or folder");
    }
    if (!removesFile && !isRecursive) {
        throw Failure(ErrorCode::InvalidLocation, storePath.text(), "is a folder; rm -r removes folders");
    }
    if (removesFile) {
        provider->removeFile(storePath.iri());
    }
    if (hasFolder && isRecursive) {
        removeTree(*provider, storePath);
    }
}

void removeFolder(const Session& session, const std::string& path) {
    const StorePath storePath(path);
    const auto provider = session.open(MissingStore::Refuse);
    if (!provider->folderExists(storePath.iri()) && isFile(*provider, storePath)) {
        throw Failure(ErrorCode::InvalidLocation, storePath.text(), "is a file");
    }
    provider->removeFolder(storePath.iri());
}

void move(const Session& session, const std::string& source, const std::string& destination, ReplacementPolicy policy) {
    transfer(session, {StorePath(source), StorePath(destination), policy}, "is a folder; folders cannot be moved",
             &IProvider::moveFile);
}

void copy(const Session& session, const std::string& source, const std::string& destination, ReplacementPolicy policy) {
    transfer(session, {StorePath(source), StorePath(destination), policy}, "is a folder; only files are copied",
             &IProvider::copyFile);
}

}  // namespace cloudfs
