// SPDX-License-Identifier: Apache-2.0
#include "commands/transfer.hpp"

#include "store/ProgressClient.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <memory>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::ReplacementPolicy;

namespace {

void failIfTaken(const IProvider& provider, const StorePath& place, bool mayReplace) {
    if (!mayReplace && provider.fileExists(place.iri())) {
        throw Failure(ErrorCode::AlreadyExists, place.text(), "exists already; --replace replaces it");
    }
}

}  // namespace

void transfer(const Session& session, const TransferRequest& request, const char* refusalOfFolders,
              TransferOperation operation) {
    const auto client = session.openClient(MissingStore::Refuse);
    const auto provider = session.providerFor(client);
    if (isFolder(*provider, request.from)) {
        throw Failure(ErrorCode::Unsupported, request.from.text(), refusalOfFolders);
    }
    const auto size = sizeOf(*provider, request.from);
    const auto place = placeFor(*provider, request.to, request.from.name());
    failIfTaken(*provider, place, request.mayReplace);
    const auto policy = request.mayReplace ? ReplacementPolicy::Replace : ReplacementPolicy::Fail;
    ProgressBar progress(size);
    const auto showing = session.providerFor(std::make_shared<ProgressClient>(client, progress));
    namingPath(place.text(), [&] { ((*showing).*operation)(request.from.iri(), place.iri(), policy); });
}

}  // namespace cloudfs::commands
