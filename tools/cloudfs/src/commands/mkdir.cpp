// SPDX-License-Identifier: Apache-2.0
#include "commands/mkdir.hpp"

#include "store/StorePath.hpp"
#include "terminal/failures.hpp"

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using storage::cloudprovider::FolderPolicy;

namespace {

[[noreturn]] void failWithoutParent(const StorePath& parent) {
    throw Failure(ErrorCode::NotFound, parent.text(), "there is no such folder; mkdir -p makes it");
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
        failWithoutParent(parent);  // rather than make a store
    }
    const auto provider = session.open(MissingStore::Create);
    if (request.withParents) {
        provider->createFolderRecursive(path.iri());
        return;
    }
    if (needsParent && !provider->folderExists(parent.iri())) {
        failWithoutParent(parent);
    }
    provider->createFolder(path.iri());
}

}  // namespace cloudfs::commands
