// SPDX-License-Identifier: Apache-2.0
#include "namespaceChanges.hpp"

#include "StoreFile.hpp"
#include "StorePath.hpp"
#include "failures.hpp"

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

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
    const auto provider = session.open(MissingStore::Create);
    if (parents) {
        provider->createFolderRecursive(storePath.iri());
    } else {
        provider->createFolder(storePath.iri());
    }
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
    session.open(MissingStore::Refuse)->removeFolder(storePath.iri());
}

void move(const Session& session, const std::string& source, const std::string& destination, ReplacementPolicy policy) {
    const StorePath from(source);
    const StorePath to(destination);
    const auto provider = session.open(MissingStore::Refuse);
    if (isFolder(*provider, from)) {
        provider->moveFolder(from.iri(), to.iri(), policy);
        return;
    }
    failIfMeansFolder(from);
    const auto place = placeFor(*provider, to, from.name());
    namingPath(place.text(), [&] { provider->moveFile(from.iri(), place.iri(), policy); });
}

void copy(const Session& session, const std::string& source, const std::string& destination, ReplacementPolicy policy) {
    const StorePath from(source);
    const StorePath to(destination);
    const auto provider = session.open(MissingStore::Refuse);
    if (isFolder(*provider, from)) {
        throw Failure(ErrorCode::Unsupported, from.text(), "is a folder; only files are copied");
    }
    failIfMeansFolder(from);
    const auto place = placeFor(*provider, to, from.name());
    namingPath(place.text(), [&] { provider->copyFile(from.iri(), place.iri(), policy); });
}

}  // namespace cloudfs
