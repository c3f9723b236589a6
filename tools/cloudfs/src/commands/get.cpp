// SPDX-License-Identifier: Apache-2.0
#include "commands/get.hpp"

#include "commands/localOperands.hpp"
#include "commands/toStandardOutput.hpp"
#include "local/LocalSource.hpp"
#include "local/LocalStoreFiles.hpp"
#include "local/LocalTarget.hpp"
#include "local/LocalTree.hpp"
#include "store/StorePath.hpp"
#include "store/operands.hpp"
#include "store/readStoreFile.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>
#include <foundation/services/Text.hpp>

#include <sys/stat.h>

#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::FolderEntry;

namespace {

struct StoreEntry {
    std::string name;  // relative to the folder
    bool isFolder = false;
    std::uint64_t size = 0;
};

void getFile(const IProvider& provider, const StorePath& path, const std::string& local, LocalTarget::Links links,
             ProgressBar& progress) {
    LocalTarget target(local, links);
    readStoreFile(
        provider, path, [&](std::string_view data) { target.write(data); }, progress);
    target.complete();
}

bool isThere(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

// The local path of what goes to local: into it, if it is a folder.
std::string localPlaceFor(const std::string& local, const std::string& name) {
    if (name.empty() || !isThere(local) || !isLocalFolder(local)) {
        return local;
    }
    return local.back() == '/' ? local + name : local + "/" + name;
}

// Keys are free text: one that would lead out of the folder, or cannot be a local name, is refused.
void failUnlessLocalName(const StorePath& folder, const std::string& name) {
    std::string_view rest(name);
    while (true) {
        const auto slash = rest.find('/');
        const auto component = rest.substr(0, slash);
        if (component.empty() || component == "." || component == ".." ||
            component.find('\0') != std::string_view::npos) {
            throw Failure(ErrorCode::InvalidLocation, folder.child(name).text(), "cannot be a local path");
        }
        if (slash == std::string_view::npos) {
            return;
        }
        rest.remove_prefix(slash + 1);
    }
}

std::vector<StoreEntry> listTree(const IProvider& provider, const StorePath& folder) {
    std::vector<StoreEntry> entries;
    const auto listing = provider.listAllRecursive(folder.iri());
    while (listing->hasNext()) {
        foundation::utInterruptState::ThrowIfInterruptPending();
        listing->next();
        const FolderEntry entry = listing->get();
        auto name = foundation::toUtf8Lossy(entry.getName());
        failUnlessLocalName(folder, name);
        const auto size = entry.isFile() ? entry.getFileAttributes().getSize().value_or(0) : 0;
        entries.push_back({std::move(name), entry.isFolder(), size});
    }
    return entries;
}

// A link in the place of a folder is refused: what lies behind it is not below the folder we were given.
void makeLocalFolder(const std::string& path) {
    constexpr mode_t kAllRights = 0777;
    if (::mkdir(path.c_str(), kAllRights) == 0) {
        return;
    }
    const int error = errno;
    struct stat status {};
    if (error != EEXIST || ::lstat(path.c_str(), &status) != 0) {
        throwLocalFailure(path, error);
    }
    if (S_ISLNK(status.st_mode)) {
        throw Failure(ErrorCode::InvalidLocation, path, "is a link; get -r does not write through it");
    }
    if (!S_ISDIR(status.st_mode)) {
        throwLocalFailure(path, error);
    }
}

// What goes to local itself may go through a link there, which is the user's choice; what goes into it may not.
LocalTarget::Links linksFor(const std::string& place, const std::string& local) {
    return place == local ? LocalTarget::Links::Follow : LocalTarget::Links::Replace;
}

void makeRootFolder(const std::string& place, const std::string& local) {
    const bool mayBeLink = linksFor(place, local) == LocalTarget::Links::Follow;
    if (!mayBeLink || !isThere(place) || !isLocalFolder(place)) {
        makeLocalFolder(place);
    }
}

void getTree(const Session& session, const IProvider& provider, const StorePath& path, const std::string& local) {
    const auto storeFiles = filesOf(session);
    const auto entries = listTree(provider, path);
    std::uint64_t total = 0;
    for (const auto& entry : entries) {
        total += entry.size;
    }
    ProgressBar progress(total);
    const auto root = localPlaceFor(local, path.name());
    for (const auto& entry : entries) {
        storeFiles.failIfContain(root + "/" + entry.name);
    }
    makeRootFolder(root, local);
    for (const auto& entry : entries) {
        const auto target = root + "/" + entry.name;
        if (entry.isFolder) {
            makeLocalFolder(target);
        } else {
            getFile(provider, path.child(entry.name), target, LocalTarget::Links::Replace, progress);
        }
    }
}

}  // namespace

void get(const Session& session, const GetRequest& request) {
    const StorePath path(request.path);
    const auto provider = session.open(MissingStore::Refuse);
    if (request.local == kStandardStream) {
        writeToOutput(*provider, path);
        return;
    }
    if (!isFile(*provider, path) && (path.isRoot() || provider->folderExists(path.iri()))) {
        if (!request.isRecursive) {
            throw Failure(ErrorCode::InvalidLocation, path.text(), "is a folder; get -r copies folders");
        }
        getTree(session, *provider, path, request.local);
        return;
    }
    ProgressBar progress(sizeOf(*provider, path));
    const auto place = localPlaceFor(request.local, path.name());
    filesOf(session).failIfContain(place);
    getFile(*provider, path, place, linksFor(place, request.local), progress);
}

}  // namespace cloudfs::commands
