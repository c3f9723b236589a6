// SPDX-License-Identifier: Apache-2.0
#include "commands/ls.hpp"

#include "commands/entryText.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "store/patterns.hpp"
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
constexpr std::size_t kShortSizeWidth = 6;

std::string padLeft(const std::string& text, std::size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string padRight(const std::string& text, std::size_t width) {
    return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

bool isWanted(const FolderEntry& entry, const LsRequest& request) {
    return entry.isFile() ? !request.onlyFolders : !request.onlyFiles;
}

// Shows the entries that are wanted, as lines or as JSON.
class Listing {
public:
    explicit Listing(const LsRequest& request) : m_request(request) {}

    void add(const FolderEntry& entry) {
        if (!isWanted(entry, m_request)) {
            return;
        }
        const auto name = foundation::toUtf8Lossy(entry.getName());
        if (m_request.isJson) {
            addEntry(m_list, "name", name, entry);
        } else {
            addLine(name, entry);
        }
    }

    void end() {
        if (m_request.isJson) {
            m_list.end();
        }
        m_output.flush();
    }

private:
    void addLine(const std::string& name, const FolderEntry& entry) {
        if (m_request.isLong) {
            constexpr std::size_t kTimeWidth = 20;
            const auto sizeWidth = m_request.sizeStyle == SizeStyle::Short ? kShortSizeWidth : kSizeWidth;
            m_output.write(padLeft(sizeText(entry, m_request.sizeStyle), sizeWidth) + "  " +
                           padRight(timeText(entry), kTimeWidth) + "  ");
        }
        m_output.writeName(name);
        m_output.write(entry.isFolder() ? "/\n" : "\n");
    }

    const LsRequest& m_request;
    StandardOutput m_output;
    JsonList m_list{m_output};
};

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
bool listWithoutFolder(const IProvider& provider, const StorePath& path, Listing& listing) {
    if (path.isRoot()) {
        return true;
    }
    if (!isFile(provider, path)) {
        return false;
    }
    listing.add({foundation::toUtf16(path.text()), provider.getFileAttributes(path.iri())});
    return true;
}

FolderEntry below(const StorePath& folder, const FolderEntry& entry) {
    const auto name = foundation::toUtf16(folder.text() + '/') + entry.getName();
    return entry.isFile() ? FolderEntry(name, entry.getFileAttributes())
                          : FolderEntry(name, entry.getFolderAttributes());
}

// What fits a pattern is listed itself, by its path, since it may be in several folders.
void listFitting(const IProvider& provider, const StorePath& path, const LsRequest& request, Listing& listing) {
    const auto name = foundation::toUtf16(path.text());
    if (isFile(provider, path)) {
        listing.add({name, provider.getFileAttributes(path.iri())});
    }
    if (!provider.folderExists(path.iri())) {
        return;
    }
    listing.add({name, provider.getFolderAttributes(path.iri())});
    if (request.isRecursive) {
        const auto entries = provider.listAllRecursive(path.iri());
        while (entries->hasNext()) {
            foundation::utInterruptState::ThrowIfInterruptPending();
            entries->next();
            listing.add(below(path, entries->get()));
        }
    }
}

void listFolder(const IProvider& provider, const StorePath& path, const LsRequest& request, Listing& listing) {
    std::unique_ptr<IFolderEntryIterator> entries;
    try {
        entries = openListing(provider, path, request);
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound || !listWithoutFolder(provider, path, listing)) {
            throw;
        }
    }
    while (entries && entries->hasNext()) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        entries->next();
        listing.add(entries->get());
    }
}

}  // namespace

void ls(const Session& session, const LsRequest& request) {
    const StorePath path(request.path);
    const auto provider = session.open(MissingStore::Refuse);
    Listing listing(request);
    const auto meant = expandPatterns(*provider, {path});
    if (meant.size() == 1 && meant.front().text() == path.text()) {
        listFolder(*provider, path, request, listing);
    } else {
        for (const auto& fitting : meant) {
            listFitting(*provider, fitting, request, listing);
        }
    }
    listing.end();
}

}  // namespace cloudfs::commands
