// SPDX-License-Identifier: Apache-2.0
#include "commands/listing.hpp"

#include "store/StorePath.hpp"
#include "terminal/StandardOutput.hpp"
#include "terminal/formatting.hpp"

#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>

#include <memory>
#include <string_view>

namespace cloudfs {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::FolderEntry;
using foundation::storage::provider::IFolderEntryIterator;

namespace {

constexpr std::size_t kSizeWidth = 14;

std::string sizeText(const FolderEntry& entry) {
    if (entry.isFolder() || !entry.getFileAttributes().getSize()) {
        return "-";
    }
    return std::to_string(*entry.getFileAttributes().getSize());
}

std::string timeText(const FolderEntry& entry) {
    return formatTime(entry.isFile() ? entry.getFileAttributes().getLastModified()
                                     : entry.getFolderAttributes().getLastModified());
}

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

bool isWanted(const FolderEntry& entry, const ListRequest& request) {
    return entry.isFile() ? !request.onlyFolders : !request.onlyFiles;
}

std::unique_ptr<IFolderEntryIterator> openListing(const IProvider& provider, const StorePath& path,
                                                  const ListRequest& request) {
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
bool listWithoutFolder(const IProvider& provider, const StorePath& path, const ListRequest& request,
                       StandardOutput& output) {
    if (path.isRoot()) {
        return true;
    }
    if (path.meansFolder() || !provider.fileExists(path.iri())) {
        return false;
    }
    const FolderEntry entry(foundation::toUtf16(path.text()), provider.getFileAttributes(path.iri()));
    if (isWanted(entry, request)) {
        writeEntry(output, entry, request.isLong);
    }
    return true;
}

void writeStatus(StandardOutput& output, const StorePath& path, const FolderEntry& entry) {
    output.write("path: ");
    output.writeName(path.text());
    output.write(std::string("\nkind: ") + (entry.isFile() ? "file" : "folder"));
    output.write("\nsize: " + sizeText(entry) + "\ntime: " + timeText(entry) + "\n");
    output.flush();
}

FolderEntry describeEntry(const IProvider& provider, const StorePath& path) {
    const auto iri = path.iri();
    if (!path.meansFolder() && provider.fileExists(iri)) {
        return {iri.getName(), provider.getFileAttributes(iri)};
    }
    return {iri.getName(), provider.getFolderAttributes(iri)};
}

}  // namespace

void list(const Session& session, const ListRequest& request) {
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

void showStatus(const Session& session, const std::string& path) {
    const StorePath storePath(path);
    const auto provider = session.open(MissingStore::Refuse);
    StandardOutput output;
    writeStatus(output, storePath, describeEntry(*provider, storePath));
}

}  // namespace cloudfs
