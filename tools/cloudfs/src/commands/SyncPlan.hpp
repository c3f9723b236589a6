// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "commands/SyncSide.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace cloudfs::commands {

/// What has to be done for a folder to hold what another one holds. Names are relative to both.
class SyncPlan {
public:
    /// Values   comparesBytes: files of one size are candidates, whatever their times are.
    SyncPlan(SyncListing from, SyncListing to, bool comparesBytes);

    /// Note those as failures, and give them up, that cannot be at the destination: why answers a reason, or that have
    /// the name of a folder.
    void refuse(const std::function<const char*(const std::string& name)>& why, const SyncSide& source,
                FileTransfers& transfers);

    /// The files whose bytes tell whether they have changed; asked for once.
    std::vector<std::string> takeCandidates();
    void addFile(std::string name) { m_files.push_back(std::move(name)); }

    /// Give up what would go into folders that cannot be made.
    void dropBelow(const std::vector<std::string>& folders);

    const std::vector<std::string>& files() const noexcept { return m_files; }
    /// Folders that are missing at the destination, each after the one that it is in.
    const std::vector<std::string>& folders() const noexcept { return m_folders; }
    /// What is only at the destination; of folders, each before the one that it is in.
    const std::vector<std::string>& surplusFiles() const noexcept { return m_surplusFiles; }
    const std::vector<std::string>& surplusFolders() const noexcept { return m_surplusFolders; }

    const SyncEntry& sourceOf(const std::string& name) const { return m_from.entries.at(name); }
    const SyncEntry& destinationOf(const std::string& name) const { return m_to.entries.at(name); }
    /// Bytes of those files at the source.
    std::uint64_t size(const std::vector<std::string>& names) const;

private:
    void findChanges(bool comparesBytes);
    void findSurplus();

    SyncListing m_from;
    SyncListing m_to;
    std::vector<std::string> m_files;
    std::vector<std::string> m_candidates;
    std::vector<std::string> m_folders;
    std::vector<std::string> m_surplusFiles;
    std::vector<std::string> m_surplusFolders;
};

}  // namespace cloudfs::commands
