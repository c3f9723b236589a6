// SPDX-License-Identifier: Apache-2.0
#include "commands/transfer.hpp"

#include "commands/FileTransfers.hpp"
#include "store/ProgressClient.hpp"
#include "store/StorePath.hpp"
#include "store/TreeTransfer.hpp"
#include "store/operands.hpp"
#include "store/patterns.hpp"
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

// One run of a command.
class Transfer {
public:
    Transfer(const Session& session, const TransferRequest& request, Source source)
        : m_session(session),
          m_request(request),
          m_source(source),
          m_client(session.openClient(MissingStore::Refuse)),
          m_provider(session.providerFor(m_client)) {}

    const IProvider& provider() const noexcept { return *m_provider; }

    void transferFile(const StorePath& from, const StorePath& to) const {
        const auto size = sizeOf(*m_provider, from);
        const auto place = placeFor(*m_provider, to, from.name());
        failIfTaken(*m_provider, place, m_request.mayReplace);
        const auto policy = m_request.mayReplace ? ReplacementPolicy::Replace : ReplacementPolicy::Fail;
        ProgressBar progress(size);
        const auto showing = m_session.providerFor(std::make_shared<ProgressClient>(m_client, progress));
        namingPath(place.text(), [&] {
            if (m_source == Source::Kept) {
                showing->copyFile(from.iri(), place.iri(), policy);
            } else {
                showing->moveFile(from.iri(), place.iri(), policy);
            }
        });
    }

    void transferTree(const StorePath& from, const StorePath& to) const {
        const auto place = folderPlaceFor(*m_provider, to, from.name());
        // Else files would take the places of others that are still to be copied.
        if (from.contains(place) || place.contains(from)) {
            throw Failure(ErrorCode::InvalidLocation, place.text(), "is the folder itself, in it or around it");
        }
        TreeTransfer tree(m_client, *m_provider, from, place);
        if (!m_request.mayReplace) {
            tree.failIfTaken();
        }
        ProgressBar progress(tree.size());
        tree.copy(m_request.mayReplace, progress);
        if (m_source == Source::Removed) {
            tree.removeSource(progress);
        }
    }

private:
    const Session& m_session;
    const TransferRequest& m_request;
    const Source m_source;
    const std::shared_ptr<ExtendedCloudClient> m_client;
    const std::shared_ptr<IProvider> m_provider;
};

}  // namespace

void transfer(const Session& session, const TransferRequest& request, Source source, const std::string& command) {
    auto paths = toPaths(request.operands);
    const auto to = paths.back();
    paths.pop_back();
    const Transfer run(session, request, source);
    const auto sources = expandPatterns(run.provider(), paths);
    if (sources.size() > 1) {
        failUnlessFolder(run.provider(), to);
    }
    FileTransfers transfers(1);
    for (const auto& from : sources) {
        transfers.attempt([&] {
            if (!isFolder(run.provider(), from)) {
                run.transferFile(from, to);
            } else if (request.isRecursive) {
                run.transferTree(from, to);
            } else {
                throw Failure(ErrorCode::InvalidLocation, from.text(), "is a folder; " + command + " -r takes folders");
            }
        });
    }
    transfers.finish();
}

}  // namespace cloudfs::commands
