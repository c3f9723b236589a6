// SPDX-License-Identifier: Apache-2.0
#include "commands/rm.hpp"

#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/failures.hpp"

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;

namespace {

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

void rm(const Session& session, const RmRequest& request) {
    const StorePath path(request.path);
    const auto provider = session.open(MissingStore::Refuse);
    const bool removesFile = isFile(*provider, path);
    const bool hasFolder = provider->folderExists(path.iri());
    if (!removesFile && !hasFolder) {
        throw Failure(ErrorCode::NotFound, path.text(), "there is no such file or folder");
    }
    if (!removesFile && !request.isRecursive) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), "is a folder; rm -r removes folders");
    }
    if (removesFile) {
        provider->removeFile(path.iri());
    }
    if (hasFolder && request.isRecursive) {
        removeTree(*provider, path);
    }
}

}  // namespace cloudfs::commands
