// SPDX-License-Identifier: Apache-2.0
#include "commands/rm.hpp"

#include "commands/FileTransfers.hpp"
#include "store/StorePath.hpp"
#include "store/StoreTree.hpp"
#include "store/operands.hpp"
#include "store/patterns.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/failures.hpp"
#include "terminal/waitingIo.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <iostream>

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

void remove(const IProvider& provider, const StorePath& path, const RmRequest& request) {
    const bool removesFile = isFile(provider, path);
    const bool hasFolder = provider.folderExists(path.iri());
    if (!removesFile && !hasFolder) {
        if (request.isForced) {
            return;
        }
        throw Failure(ErrorCode::NotFound, path.text(), "there is no such file or folder");
    }
    if (!removesFile && !request.isRecursive) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), "is a folder; rm -r removes folders");
    }
    if (removesFile) {
        provider.removeFile(path.iri());
    }
    if (hasFolder && request.isRecursive) {
        removeTree(provider, path);
    }
}

void show(const IProvider& provider, const StorePath& path, const RmRequest& request, StandardOutput& output) {
    const auto showPath = [&](const StorePath& shown, const char* end) {
        output.write("rm ");
        output.writeName(shown.text());
        output.write(end);
    };
    const bool removesFile = isFile(provider, path);
    if (removesFile) {
        showPath(path, "\n");
    }
    if (!provider.folderExists(path.iri())) {
        if (!removesFile && !request.isForced) {
            throw Failure(ErrorCode::NotFound, path.text(), "there is no such file or folder");
        }
    } else if (request.isRecursive) {
        for (const auto& entry : listStoreTree(provider, path)) {
            showPath(path.child(entry.name), entry.isFolder ? "/\n" : "\n");
        }
    } else if (!removesFile) {
        throw Failure(ErrorCode::InvalidLocation, path.text(), "is a folder; rm -r removes folders");
    }
}

bool isConfirmed(const std::string& store) {
    std::cerr << "Remove everything in " << store << "? [y/N] " << std::flush;
    std::array<char, 256> answer{};
    return readSome(STDIN_FILENO, "standard input", answer.data(), answer.size()) > 0 &&
           (answer.front() == 'y' || answer.front() == 'Y');
}

void failUnlessMeant(const Session& session, const std::vector<StorePath>& paths, const RmRequest& request) {
    const bool takesAll = std::any_of(paths.begin(), paths.end(), [](const StorePath& path) { return path.isRoot(); });
    if (!takesAll || !request.isRecursive || request.isForced || request.isDryRun) {
        return;
    }
    if (::isatty(STDIN_FILENO) != 1) {
        throw UsageError("rm -r / removes everything; --force does it without asking");
    }
    if (!isConfirmed(session.url.name())) {
        throw Failure(ErrorCode::Unsupported, "/", "nothing was removed");
    }
}

}  // namespace

void rm(const Session& session, const RmRequest& request) {
    const auto given = toPaths(request.paths);
    const auto provider = session.open(MissingStore::Refuse);
    failUnlessMeant(session, given, request);
    const auto nothing = request.isForced ? NothingFits::IsFine : NothingFits::Fail;
    FileTransfers transfers(1);
    StandardOutput output;
    for (const auto& path : given) {
        transfers.attempt([&] {
            for (const auto& meant : expandPatterns(*provider, {path}, nothing)) {
                transfers.attempt([&] {
                    if (request.isDryRun) {
                        show(*provider, meant, request, output);
                    } else {
                        remove(*provider, meant, request);
                    }
                });
            }
        });
    }
    output.flush();
    transfers.finish();
}

}  // namespace cloudfs::commands
