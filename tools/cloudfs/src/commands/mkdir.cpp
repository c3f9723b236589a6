// SPDX-License-Identifier: Apache-2.0
#include "commands/mkdir.hpp"

#include "store/StorePath.hpp"
#include "terminal/failures.hpp"

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using storage::cloudprovider::FolderPolicy;

namespace {

[[noreturn]] void failWithout(const StorePath& folder) {
    throw Failure(ErrorCode::NotFound, folder.text(), "there is no such folder; mkdir -p makes it");
}

// The first on the way to it.
StorePath firstMissing(const IProvider& provider, const StorePath& folder) {
    const auto parent = folder.parent();
    return parent.isRoot() || provider.folderExists(parent.iri()) ? folder : firstMissing(provider, parent);
}

StorePath firstFolderOf(const StorePath& path) {
    return path.parent().isRoot() ? path : firstFolderOf(path.parent());
}

}  // namespace

void mkdir(const Session& session, const MkdirRequest& request) {
    const StorePath path(request.path);
    if (session.folderPolicy == FolderPolicy::ImplicitFolders) {
        throw Failure(ErrorCode::Unsupported, path.text(), "folders exist only while files are in them");
    }
    if (path.isRoot() && !request.withParents) {
        throw Failure(ErrorCode::AlreadyExists, path.text(), "is always there");
    }
    const auto parent = path.parent();
    const bool needsParent = !request.withParents && !parent.isRoot();
    if (needsParent && !session.hasStore()) {
        failWithout(firstFolderOf(parent));  // rather than make a store
    }
    const auto provider = session.open(MissingStore::Create);
    if (request.withParents) {
        provider->createFolderRecursive(path.iri());
        return;
    }
    if (needsParent && !provider->folderExists(parent.iri())) {
        failWithout(firstMissing(*provider, parent));
    }
    provider->createFolder(path.iri());
}

}  // namespace cloudfs::commands
