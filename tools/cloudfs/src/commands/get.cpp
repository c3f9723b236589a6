// SPDX-License-Identifier: Apache-2.0
#include "commands/get.hpp"

#include "commands/FileTransfers.hpp"
#include "commands/GetPlan.hpp"
#include "commands/localOperands.hpp"
#include "commands/toStandardOutput.hpp"
#include "local/LocalSource.hpp"
#include "local/LocalTree.hpp"
#include "local/localPlaces.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "store/patterns.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/failures.hpp"

#include <optional>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::FileAttributes;

namespace {

struct Operands {
    std::vector<StorePath> paths;
    std::string local = ".";
};

Operands split(const GetRequest& request) {
    Operands operands;
    auto texts = request.operands;
    if (texts.size() > 1) {
        operands.local = texts.back();
        texts.pop_back();
    }
    operands.paths = toPaths(texts);
    return operands;
}

// What goes to local itself may go through a link there, which is the user's choice; what goes into it may not.
LocalTarget::Links linksFor(const std::string& place, const std::string& local) {
    return place == local ? LocalTarget::Links::Follow : LocalTarget::Links::Replace;
}

// Of a file in one request; nothing where a folder is meant.
std::optional<FileAttributes> attributesOfFile(const IProvider& provider, const StorePath& path) {
    if (path.meansFolder()) {
        return std::nullopt;
    }
    try {
        return provider.getFileAttributes(path.iri());
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound || !provider.folderExists(path.iri())) {
            throw;
        }
        return std::nullopt;
    }
}

void add(GetPlan& plan, const IProvider& provider, const StorePath& path, const GetRequest& request,
         const std::string& local) {
    const auto place = localPlaceFor(local, path.name());
    if (const auto attributes = attributesOfFile(provider, path)) {
        plan.addFile(
            {path, place, linksFor(place, local), attributes->getSize().value_or(0), attributes->getLastModified()});
        return;
    }
    if (!request.isRecursive) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), "is a folder; get -r copies folders");
    }
    plan.addTree(provider, path, place, linksFor(place, local));
}

void show(const GetPlan& plan) {
    StandardOutput output;
    for (const auto& file : plan.files()) {
        output.write("get ");
        output.writeName(file.from.text());
        output.write(" ");
        output.writeName(file.to);
        output.write("\n");
    }
    output.flush();
}

}  // namespace

void get(const Session& session, const GetRequest& request) {
    const auto operands = split(request);
    const auto provider = session.open(MissingStore::Refuse);
    const auto paths = expandPatterns(*provider, operands.paths);
    if (operands.local == kStandardStream) {
        for (const auto& path : paths) {
            writeToOutput(*provider, path);
        }
        return;
    }
    if (paths.size() > 1 && (!isThere(operands.local) || !isLocalFolder(operands.local))) {
        throw Failure(ErrorCode::InvalidLocation, operands.local, "is no folder, which several files need");
    }
    FileTransfers transfers(request.transfers);
    GetPlan plan(filesOf(session), transfers);
    for (const auto& path : paths) {
        transfers.attempt([&] { add(plan, *provider, path, request, operands.local); });
    }
    if (request.isDryRun) {
        show(plan);
    } else {
        plan.makeFolders();
        ProgressBar progress(plan.size(), plan.files().size());
        transfers.run(plan.files().size(), progress,
                      [&](std::size_t index) { getFile(*provider, plan.files()[index], progress); });
    }
    transfers.finish();
}

}  // namespace cloudfs::commands
