// SPDX-License-Identifier: Apache-2.0
#include "commands/put.hpp"

#include "commands/FileTransfers.hpp"
#include "commands/PutPlan.hpp"
#include "commands/localOperands.hpp"
#include "local/LocalSource.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/failures.hpp"

#include <memory>
#include <utility>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using storage::cloudprovider::FolderPolicy;

namespace {

// A local operand as it was found, before there is a store.
struct Found {
    std::string local;
    std::shared_ptr<LocalSource> source;  // of a file; null for a folder
    std::vector<LocalEntry> entries{};    // of a folder
};

Found find(const Session& session, const PutRequest& request, const std::string& local, const StorePath& path,
           FileTransfers& transfers) {
    if (local != kStandardStream) {
        failUnlessUtf8(local);
        if (isLocalFolder(local)) {
            if (!request.isRecursive) {
                throw Failure(ErrorCode::InvalidLocation, local, "is a folder; put -r copies folders");
            }
            const auto onFailure = [&](std::exception_ptr failure) { transfers.addFailure(std::move(failure)); };
            const ScanOptions options{.links = request.links, .onFailure = onFailure};
            return {local, nullptr, scanLocalFolder(local, filesOf(session), options).entries};
        }
    }
    failIfStore(session, local);
    auto source = std::make_shared<LocalSource>(local);
    failUnlessNameable(path, localName(local));
    return {local, std::move(source)};
}

void add(PutPlan& plan, const IProvider& provider, Found found, const StorePath& path, bool keepsOpen) {
    const auto name = localName(found.local);
    if (!found.source) {
        plan.addTree(found.entries, folderPlaceFor(provider, path, name));
        return;
    }
    const auto size = found.source->size().value_or(0);
    plan.addFile({found.local, placeFor(provider, path, name), size, keepsOpen ? std::move(found.source) : nullptr});
}

// Folders are made as such where the store can hold them, so that empty ones are kept.
void makeFolders(const IProvider& provider, const PutPlan& plan, FolderPolicy policy, FileTransfers& transfers) {
    if (policy == FolderPolicy::MarkerObjects) {
        for (const auto& folder : plan.folders()) {
            transfers.attempt([&] { provider.createFolderRecursive(folder.iri()); });
        }
    }
}

void show(const PutPlan& plan) {
    StandardOutput output;
    for (const auto& file : plan.files()) {
        output.write("put ");
        output.writeName(file.from);
        output.write(" ");
        output.writeName(file.to.text());
        output.write("\n");
    }
    output.flush();
}

void execute(const Session& session, const IProvider& provider, const PutPlan& plan, FileTransfers& transfers) {
    makeFolders(provider, plan, session.folderPolicy, transfers);
    const auto& files = plan.files();
    ProgressBar progress(plan.size(), files.size());
    transfers.run(files.size(), progress, [&](std::size_t index) { putFile(provider, files[index], progress); });
}

}  // namespace

void put(const Session& session, const PutRequest& request) {
    auto locals = request.operands;
    const StorePath path(locals.back());
    locals.pop_back();
    FileTransfers transfers(request.transfers);
    std::vector<Found> found;
    for (const auto& local : locals) {
        transfers.attempt([&] { found.push_back(find(session, request, local, path, transfers)); });
    }
    if (found.empty()) {
        transfers.finish();  // before a store is made
        return;
    }
    const auto provider = session.open(request.isDryRun ? MissingStore::Refuse : MissingStore::Create);
    if (locals.size() > 1) {
        failUnlessFolder(*provider, path);
    }
    PutPlan plan;
    for (auto& operand : found) {
        transfers.attempt([&] { add(plan, *provider, std::move(operand), path, locals.size() == 1); });
    }
    if (request.isDryRun) {
        show(plan);
    } else {
        execute(session, *provider, plan, transfers);
    }
    transfers.finish();
}

}  // namespace cloudfs::commands
