// SPDX-License-Identifier: Apache-2.0
#include "commands/GetPlan.hpp"

#include "commands/FileTransfers.hpp"
#include "commands/Patience.hpp"
#include "local/LocalTree.hpp"
#include "local/localPlaces.hpp"
#include "store/StoreTree.hpp"
#include "store/readStoreFile.hpp"
#include "terminal/ProgressBar.hpp"
#include "terminal/failures.hpp"

#include <foundation/services/InterruptState.hpp>

#include <algorithm>
#include <memory>
#include <numeric>
#include <string_view>
#include <utility>

namespace cloudfs::commands {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::IProvider;

namespace {

void copyInto(LocalTarget& target, const IProvider& provider, const Download& download, ProgressBar& progress) {
    if (target.isFile()) {
        readStoreFileInPieces(
            provider, download.from, [&](std::uint64_t offset, std::string_view data) { target.writeAt(offset, data); },
            progress);
    } else {
        readStoreFile(
            provider, download.from, [&](std::string_view data) { target.write(data); }, progress);
    }
    target.complete(download.time);
}

// The names of all folders that entries are in, whether they are listed or not.
std::set<std::string> folderNames(const std::vector<StoreEntry>& entries) {
    std::set<std::string> names;
    for (const auto& entry : entries) {
        if (entry.isFolder) {
            names.insert(entry.name);
        }
        for (auto slash = entry.name.rfind('/'); slash != std::string::npos && slash > 0;
             slash = entry.name.rfind('/', slash - 1)) {
            if (!names.insert(entry.name.substr(0, slash)).second) {
                break;  // and those above it are there, too
            }
        }
    }
    return names;
}

}  // namespace

// A device or pipe cannot take back what it got, so that it gets one try.
void getFile(const IProvider& provider, const Download& download, ProgressBar& progress) {
    auto target = std::make_unique<LocalTarget>(download.to, download.links);
    if (!target->isFile()) {
        copyInto(*target, provider, download, progress);
        return;
    }
    Patience().run([&] {
        const auto ofThisTry = target ? std::move(target) : std::make_unique<LocalTarget>(download.to, download.links);
        copyInto(*ofThisTry, provider, download, progress);
    });
}

GetPlan::GetPlan(LocalStoreFiles storeFiles, FileTransfers& transfers)
    : m_storeFiles(std::move(storeFiles)), m_transfers(transfers) {}

void GetPlan::addFile(Download download) {
    try {
        m_storeFiles.failIfContain(download.to);
    } catch (const Failure&) {
        m_transfers.addFailure(std::current_exception());
        return;
    }
    if (!m_targets.insert(download.to).second) {
        fail(download.from, "another file goes to the same local path");
        return;
    }
    m_files.push_back(std::move(download));
}

void GetPlan::addTree(const IProvider& provider, const StorePath& path, const std::string& root,
                      LocalTarget::Links links) {
    const auto entries = listStoreTree(provider, path);
    const auto folders = folderNames(entries);
    m_folders.push_back({root, links});
    for (const auto& folder : folders) {
        if (whyNotLocal(folder) == nullptr) {
            m_folders.push_back({root + "/" + folder});
        }
    }
    for (const auto& entry : entries) {
        if (const char* const cause = whyNotLocal(entry.name)) {
            fail(path.child(entry.name), cause);
        } else if (entry.isFolder) {
            continue;  // it is among the folders
        } else if (folders.count(entry.name) != 0) {
            fail(path.child(entry.name), "a folder has the same name");
        } else {
            addFile(
                {path.child(entry.name), root + "/" + entry.name, LocalTarget::Links::Replace, entry.size, entry.time});
        }
    }
}

void GetPlan::makeFolders() {
    std::vector<std::string> failed;
    for (const auto& folder : m_folders) {
        const auto isAbove = [&](const std::string& other) { return folder.path.starts_with(other + "/"); };
        if (std::any_of(failed.begin(), failed.end(), isAbove)) {
            continue;
        }
        try {
            foundation::utInterruptState::ThrowIfInterruptPending();
            if (folder.links != LocalTarget::Links::Follow || !isThere(folder.path) || !isLocalFolder(folder.path)) {
                makeLocalFolder(folder.path);
            }
        } catch (const Failure&) {
            m_transfers.addFailure(std::current_exception());
            failed.push_back(folder.path);
        }
    }
    for (const auto& folder : failed) {
        dropBelow(folder);
    }
}

void GetPlan::dropBelow(const std::string& folder) {
    std::erase_if(m_files, [&](const Download& file) { return file.to.starts_with(folder + "/"); });
}

std::uint64_t GetPlan::size() const {
    return std::accumulate(m_files.begin(), m_files.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const Download& download) { return sum + download.size; });
}

void GetPlan::fail(const StorePath& path, const char* cause) {
    m_transfers.addFailure(std::make_exception_ptr(Failure(ErrorCode::InvalidLocation, path.text(), cause)));
}

}  // namespace cloudfs::commands
