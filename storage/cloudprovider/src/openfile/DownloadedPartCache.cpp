// SPDX-License-Identifier: Apache-2.0
#include "openfile/DownloadedPartCache.hpp"

namespace storage::cloudprovider {

DownloadedPartCache::DownloadedPartCache(std::uint64_t limit) : m_limit(limit) {}

DownloadedPartCache::Parts DownloadedPartCache::add(const Part& part) {
    Parts evicted;
    Parts added{part};
    const foundation::MutexLock lock(m_mutex);
    if (const auto known = m_positions.find(part.get()); known != m_positions.end()) {
        m_entries.splice(m_entries.end(), m_entries, known->second);
        return evicted;
    }
    m_positions.emplace(part.get(), added.begin());
    m_entries.splice(m_entries.end(), added);
    m_total += part->capacity();
    while (m_total > m_limit) {
        take(m_entries.begin(), evicted);
    }
    return evicted;
}

void DownloadedPartCache::remove(const Part& part) {
    Parts removed;
    const foundation::MutexLock lock(m_mutex);
    if (const auto known = m_positions.find(part.get()); known != m_positions.end()) {
        take(known->second, removed);
    }
}

void DownloadedPartCache::take(Parts::iterator entry, Parts& taken) {
    m_total -= (*entry)->capacity();
    m_positions.erase(entry->get());
    taken.splice(taken.end(), m_entries, entry);
}

}  // namespace storage::cloudprovider
