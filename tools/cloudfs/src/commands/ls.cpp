// SPDX-License-Identifier: Apache-2.0
#include "commands/ls.hpp"

#include "commands/entryText.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "terminal/StandardOutput.hpp"

#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>

#include <memory>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::FolderEntry;
using foundation::storage::provider::IFolderEntryIterator;

namespace {

constexpr std::size_t kSizeWidth = 14;

std::string padLeft(const std::string& text, std::size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string padRight(const std::string& text, std::size_t width) {
    return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

void writeEntry(StandardOutput& output, const FolderEntry& entry, bool isLong) {
    if (isLong) {
        constexpr std::size_t kTimeWidth = 20;
        output.write(padLeft(sizeText(entry), kSizeWidth) + "  " + padRight(timeText(entry), kTimeWidth) + "  ");
    }
    output.writeName(foundation::toUtf8Lossy(entry.getName()));
    output.write(entry.isFolder() ? "/\n" : "\n");
}

bool isWanted(const FolderEntry& entry, const LsRequest& request) {
    return entry.isFile() ? !request.onlyFolders : !request.onlyFiles;
}

std::unique_ptr<IFolderEntryIterator> openListing(const IProvider& provider, const StorePath& path,
                                                  const LsRequest& request) {
    const auto iri = path.iri();
    if (request.isRecursive) {
        return provider.listAllRecursive(iri);
    }
    if (request.onlyFiles) {
        return provider.listFiles(iri);
    }
    return request.onlyFolders ? provider.listFolders(iri) : provider.listAll(iri);
}

// A path without entries below it: the root is there nevertheless, and a file is listed as itself. Tells
// whether it was one of these.
bool listWithoutFolder(const IProvider& provider, const StorePath& path, const LsRequest& request,
                       StandardOutput& output) {
    if (path.isRoot()) {
        return true;
    }
    if (!isFile(provider, path)) {
        return false;
    }
    const FolderEntry entry(foundation::toUtf16(path.text()), provider.getFileAttributes(path.iri()));
    if (isWanted(entry, request)) {
        writeEntry(output, entry, request.isLong);
    }
    return true;
}

}  // namespace

void ls(const Session& session, const LsRequest& request) {
    const StorePath path(request.path);
    const auto provider = session.open(MissingStore::Refuse);
    StandardOutput output;
    std::unique_ptr<IFolderEntryIterator> entries;
    try {
        entries = openListing(*provider, path, request);
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound || !listWithoutFolder(*provider, path, request, output)) {
            throw;
        }
    }
    while (entries && entries->hasNext()) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        entries->next();
        const auto entry = entries->get();
        if (isWanted(entry, request)) {
            writeEntry(output, entry, request.isLong);
        }
    }
    output.flush();
}

}  // namespace cloudfs::commands
