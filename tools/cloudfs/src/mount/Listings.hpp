// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "store/StorePath.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <foundation/threads/Mutex.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

namespace cloudfs::mount {

/// A file or folder as the store has it. A plain value.
struct StoredEntry {
    bool isFolder = false;
    std::uint64_t size = 0;
    std::optional<std::chrono::system_clock::time_point> modified{};  ///< nothing for folders, and where nobody knows
};

/// What the store was seen to have, remembered for a short time, so that programs that look at each file of a folder do
/// not ask for each one.
///
/// Where a file and a folder have the same name, the file is what is seen. Names that no program could use are left
/// out: "." and "..", and longer ones than the kernel takes.
///
/// Errors   Exception. Threads: any.
class Listings {
public:
    /// What a folder was seen to hold at one moment.
    struct Folder {
        std::map<std::string, StoredEntry> entries;
        std::uint64_t changes = 0;  ///< that had been made from here
    };
    using IProvider = foundation::storage::provider::IProvider;

    /// remembered: for how long what was seen counts.
    Listings(std::shared_ptr<IProvider> provider, std::chrono::nanoseconds remembered);

    /// What is directly in a folder; nothing in it when it does not exist.
    std::shared_ptr<const Folder> list(const StorePath& folder);

    /// What is at a path; nothing: neither a file nor a folder.
    std::optional<StoredEntry> find(const StorePath& path);

    /// An entry of a listing: as it was seen then, unless it was changed from here since.
    std::optional<StoredEntry> find(const Folder& listing, const StorePath& path);

    /// Forget what was seen at a path, and in the folder that holds it: it was changed from here. What is being asked
    /// for at this moment is not remembered.
    void forget(const StorePath& path);

private:
    using Clock = std::chrono::steady_clock;
    /// When something was asked for.
    struct Moment {
        Clock::time_point time;
        std::uint64_t changes;
    };
    template <typename Seen>
    struct Remembered {
        Seen seen;
        Clock::time_point until;
    };
    template <typename Seen>
    using Memory = std::unordered_map<std::string, Remembered<Seen>>;

    std::shared_ptr<const Folder> fetchFolder(const StorePath& folder, std::uint64_t changes) const;
    std::optional<StoredEntry> fetchEntry(const StorePath& path) const;
    template <typename Seen>
    void remember(Memory<Seen> Listings::*table, const StorePath& path, const Seen& seen, const Moment& before);
    Moment now() const;

    const std::shared_ptr<IProvider> m_provider;
    const std::chrono::nanoseconds m_remembered;

    mutable foundation::Mutex m_mutex;  // a leaf
    Memory<std::shared_ptr<const Folder>> m_folders CLOUDPROVIDER_GUARDED_BY(m_mutex);
    Memory<std::optional<StoredEntry>> m_entries CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::uint64_t m_changes CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    // Paths, and which change was the last one; they are those from m_oldestKnown on.
    std::unordered_map<std::string, std::uint64_t> m_changed CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::uint64_t m_oldestKnown CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
};

}  // namespace cloudfs::mount
