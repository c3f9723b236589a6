// SPDX-License-Identifier: Apache-2.0
#include "commands/transfer.hpp"

#include "store/ProgressClient.hpp"
#include "store/StorePath.hpp"
#include "store/TreeTransfer.hpp"
#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <memory>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;
using storage::cloudprovider::ExtendedCloudClient;

namespace {

void failIfTaken(const IProvider& provider, const StorePath& place, bool mayReplace) {
    if (!mayReplace && provider.fileExists(place.iri())) {
        throw Failure(ErrorCode::AlreadyExists, place.text(), "exists already; --replace replaces it");
    }
}

void transferFile(const Session& session, const std::shared_ptr<ExtendedCloudClient>& client, const IProvider& provider,
                  const TransferRequest& request, Source source) {
    const auto size = sizeOf(provider, request.from);
    const auto place = placeFor(provider, request.to, request.from.name());
    failIfTaken(provider, place, request.mayReplace);
    const auto policy = request.mayReplace ? ReplacementPolicy::Replace : ReplacementPolicy::Fail;
    ProgressBar progress(size);
    const auto showing = session.providerFor(std::make_shared<ProgressClient>(client, progress));
    namingPath(place.text(), [&] {
        if (source == Source::Kept) {
            showing->copyFile(request.from.iri(), place.iri(), policy);
        } else {
            showing->moveFile(request.from.iri(), place.iri(), policy);
        }
    });
}

void transferTree(const std::shared_ptr<ExtendedCloudClient>& client, const IProvider& provider,
                  const TransferRequest& request, Source source) {
    const auto place = folderPlaceFor(provider, request.to, request.from.name());
    // Else files would take the places of others that are still to be copied.
    if (request.from.contains(place) || place.contains(request.from)) {
        throw Failure(ErrorCode::InvalidLocation, place.text(), "is the folder itself, in it or around it");
    }
    TreeTransfer tree(client, provider, request.from, place);
    if (!request.mayReplace) {
        tree.failIfTaken();
    }
    ProgressBar progress(tree.size());
    tree.copy(request.mayReplace, progress);
    if (source == Source::Removed) {
        tree.removeSource(progress);
    }
}

}  // namespace

void transfer(const Session& session, const TransferRequest& request, Source source, const std::string& command) {
    const auto client = session.openClient(MissingStore::Refuse);
    const auto provider = session.providerFor(client);
    if (!isFolder(*provider, request.from)) {
        transferFile(session, client, *provider, request, source);
        return;
    }
    if (!request.isRecursive) {
        throw Failure(ErrorCode::InvalidLocation, request.from.text(), "is a folder; " + command + " -r takes folders");
    }
    transferTree(client, *provider, request, source);
}

}  // namespace cloudfs::commands
