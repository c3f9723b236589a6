// SPDX-License-Identifier: Apache-2.0
#include "commands/LocalSide.hpp"

#include "commands/FileTransfers.hpp"
#include "local/localPlaces.hpp"
#include "local/removeBelow.hpp"
#include "terminal/failures.hpp"

#include <algorithm>
#include <utility>

namespace cloudfs::commands {

namespace {

// Rounded up: a file of the store that is as old as this was stored after the change.
std::int64_t toMicroseconds(const std::timespec& time) {
    constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
    constexpr std::int64_t kNanosecondsPerMicrosecond = 1'000;
    return static_cast<std::int64_t>(time.tv_sec) * kMicrosecondsPerSecond +
           (time.tv_nsec + kNanosecondsPerMicrosecond - 1) / kNanosecondsPerMicrosecond;
}

}  // namespace

LocalSide::LocalSide(std::string root, LocalStoreFiles storeFiles, Links links)
    : m_root(std::move(root)), m_storeFiles(std::move(storeFiles)), m_links(links) {}

std::string LocalSide::textOf(const std::string& name) const {
    if (name.empty()) {
        return m_root;
    }
    return m_root.back() == '/' ? m_root + name : m_root + "/" + name;
}

SyncListing LocalSide::list(const ExcludedNames& isExcluded, FileTransfers& transfers) const {
    const auto onFailure = [&](std::exception_ptr failure) { transfers.addFailure(std::move(failure)); };
    auto scan =
        scanLocalFolder(m_root, m_storeFiles, {.links = m_links, .isExcluded = isExcluded, .onFailure = onFailure});
    SyncListing listing;
    listing.leftOut = std::move(scan.leftOut);
    for (const auto& entry : scan.entries) {
        listing.entries.insert({entry.name, {entry.isFolder, entry.size, toMicroseconds(entry.time)}});
    }
    return listing;
}

std::vector<std::string> LocalSide::makeFolders(const std::vector<std::string>& names, FileTransfers& transfers) const {
    std::vector<std::string> failed;
    if (!isThere(m_root) || !isLocalFolder(m_root)) {
        makeLocalFolder(m_root);
    }
    for (const auto& name : names) {
        const auto isAbove = [&](const std::string& other) { return name.starts_with(other + "/"); };
        if (std::any_of(failed.begin(), failed.end(), isAbove)) {
            continue;
        }
        transfers.attempt([&] {
            failed.push_back(name);
            makeLocalFolder(textOf(name));
            failed.pop_back();
        });
    }
    return failed;
}

void LocalSide::remove(const std::string& name, const SyncEntry& listed) const {
    removeFileBelow(m_root, name, [&](const struct stat& status) {
        return static_cast<std::uint64_t>(status.st_size) == listed.size &&
               toMicroseconds(status.st_mtim) == listed.time;
    });
}

void LocalSide::removeFolder(const std::string& name) const {
    removeFolderBelow(m_root, name);
}

}  // namespace cloudfs::commands
