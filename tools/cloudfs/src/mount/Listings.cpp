// SPDX-License-Identifier: Apache-2.0
#include "mount/Listings.hpp"

#include <foundation/services/Text.hpp>
#include <foundation/storage/provider/Exception.hpp>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <utility>

namespace cloudfs::mount {

using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::FileAttributes;

namespace {

// Longer names make the kernel refuse a whole listing (FUSE_NAME_MAX, fs/fuse/fuse_i.h).
constexpr std::size_t kLongestListedName = 1024;

// More than these are tidied up before another one comes.
constexpr std::size_t kManyEntries = 4096;

StoredEntry toEntry(const FileAttributes& attributes) {
    StoredEntry entry{.size = attributes.getSize().value_or(0)};
    if (const auto& time = attributes.getLastModified(); !time.is_special()) {
        static const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
        // S3 tells fractions in listings only: a file would seem to change with whoever asked.
        const std::chrono::microseconds since((time - epoch).total_microseconds());
        entry.modified.emplace(std::chrono::floor<std::chrono::seconds>(since));
    }
    return entry;
}

bool isUsable(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.size() <= kLongestListedName &&
           name.find('\0') == std::string::npos;
}

// Nothing where the operation says NotFound.
template <typename Ask>
auto ifFound(Ask ask) -> std::optional<decltype(ask())> {
    try {
        return ask();
    } catch (const Exception& failure) {
        if (failure.getErrorCode() != ErrorCode::NotFound) {
            throw;
        }
        return std::nullopt;
    }
}

}  // namespace

Listings::Listings(std::shared_ptr<IProvider> provider, std::chrono::nanoseconds remembered)
    : m_provider(std::move(provider)), m_remembered(remembered) {}

std::shared_ptr<const Listings::Folder> Listings::list(const StorePath& folder) {
    {
        const foundation::MutexLock lock(m_mutex);
        const auto known = m_folders.find(folder.text());
        if (known != m_folders.end() && Clock::now() < known->second.until) {
            return known->second.seen;
        }
    }
    const auto before = now();
    auto listing = fetchFolder(folder, before.changes);
    remember(&Listings::m_folders, folder, listing, before);
    return listing;
}

std::optional<StoredEntry> Listings::find(const StorePath& path) {
    {
        const foundation::MutexLock lock(m_mutex);
        const auto asked = Clock::now();
        const auto folder = m_folders.find(path.parent().text());
        if (folder != m_folders.end() && asked < folder->second.until) {
            const auto& entries = folder->second.seen->entries;
            const auto entry = entries.find(path.name());
            return entry != entries.end() ? std::optional(entry->second) : std::nullopt;
        }
        const auto known = m_entries.find(path.text());
        if (known != m_entries.end() && asked < known->second.until) {
            return known->second.seen;
        }
    }
    const auto before = now();
    auto entry = fetchEntry(path);
    remember(&Listings::m_entries, path, entry, before);
    return entry;
}

std::optional<StoredEntry> Listings::find(const Folder& listing, const StorePath& path) {
    {
        const foundation::MutexLock lock(m_mutex);
        const auto changed = m_changed.find(path.text());
        const bool isKnown = listing.changes >= m_oldestKnown;
        if (isKnown && (changed == m_changed.end() || changed->second <= listing.changes)) {
            const auto entry = listing.entries.find(path.name());
            return entry != listing.entries.end() ? std::optional(entry->second) : std::nullopt;
        }
    }
    return find(path);
}

void Listings::forget(const StorePath& path) {
    const foundation::MutexLock lock(m_mutex);
    ++m_changes;
    if (m_changed.size() >= kManyEntries) {
        m_changed.clear();
        m_oldestKnown = m_changes;
    }
    m_changed[path.text()] = m_changes;
    m_entries.erase(path.text());
    m_folders.erase(path.parent().text());
}

std::shared_ptr<const Listings::Folder> Listings::fetchFolder(const StorePath& folder, std::uint64_t changes) const {
    auto listing = std::make_shared<Folder>();
    listing->changes = changes;
    const auto entries = ifFound([&] { return m_provider->listAll(folder.iri()); });
    while (entries && (*entries)->hasNext()) {
        (*entries)->next();
        const auto entry = (*entries)->get();
        auto name = foundation::toUtf8Lossy(entry.getName());
        if (!isUsable(name)) {
            continue;
        }
        if (entry.isFile()) {
            listing->entries.insert_or_assign(std::move(name), toEntry(entry.getFileAttributes()));
        } else {
            listing->entries.try_emplace(std::move(name), StoredEntry{.isFolder = true});
        }
    }
    return listing;
}

std::optional<StoredEntry> Listings::fetchEntry(const StorePath& path) const {
    if (const auto file = ifFound([&] { return m_provider->getFileAttributes(path.iri()); })) {
        return toEntry(*file);
    }
    return m_provider->folderExists(path.iri()) ? std::optional(StoredEntry{.isFolder = true}) : std::nullopt;
}

template <typename Seen>
void Listings::remember(Memory<Seen> Listings::*table, const StorePath& path, const Seen& seen, const Moment& before) {
    const foundation::MutexLock lock(m_mutex);
    auto& memory = this->*table;
    if (m_changes != before.changes || m_remembered.count() == 0) {
        return;
    }
    if (memory.size() >= kManyEntries) {
        std::erase_if(memory, [&](const auto& each) { return each.second.until <= before.time; });
    }
    memory.insert_or_assign(path.text(), Remembered<Seen>{seen, before.time + m_remembered});
}

Listings::Moment Listings::now() const {
    const foundation::MutexLock lock(m_mutex);
    return {Clock::now(), m_changes};
}

}  // namespace cloudfs::mount
