// SPDX-License-Identifier: Apache-2.0
#include "DownloadedPartCache.hpp"

namespace storage::cloudprovider {

DownloadedPartCache::DownloadedPartCache(std::uint64_t limit) : m_limit(limit) {}

std::vector<DownloadedPartCache::Part> DownloadedPartCache::add(const Part& part) {
    std::vector<Part> evicted;
    const std::lock_guard lock(m_mutex);
    if (const auto known = m_positions.find(part.get()); known != m_positions.end()) {
        m_entries.splice(m_entries.end(), m_entries, known->second);
        return evicted;
    }
    Entries added{part};
    m_positions.emplace(part.get(), added.begin());
    m_entries.splice(m_entries.end(), added);
    m_total += part->capacity();
    while (m_total > m_limit) {
        evicted.push_back(m_entries.front());
        erase(m_entries.begin());
    }
    return evicted;
}

void DownloadedPartCache::remove(const Part& part) {
    const std::lock_guard lock(m_mutex);
    if (const auto known = m_positions.find(part.get()); known != m_positions.end()) {
        erase(known->second);
    }
}

void DownloadedPartCache::erase(Entries::iterator entry) {
    m_total -= (*entry)->capacity();
    m_positions.erase(entry->get());
    m_entries.erase(entry);
}

}  // namespace storage::cloudprovider
