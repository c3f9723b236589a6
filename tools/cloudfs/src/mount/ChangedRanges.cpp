// SPDX-License-Identifier: Apache-2.0
#include "mount/ChangedRanges.hpp"

#include <algorithm>
#include <iterator>

namespace cloudfs::mount {

void ChangedRanges::add(std::uint64_t begin, std::uint64_t end) {
    if (begin >= end) {
        return;
    }
    auto first = m_written.upper_bound(begin);
    if (first != m_written.begin() && std::prev(first)->second >= begin) {
        --first;
    }
    auto last = first;
    for (; last != m_written.end() && last->first <= end; ++last) {
        begin = std::min(begin, last->first);
        end = std::max(end, last->second);
    }
    m_written.erase(first, last);
    m_written.emplace(begin, end);
}

void ChangedRanges::resize(std::uint64_t size) {
    m_keptOfStored = std::min(m_keptOfStored, size);
    m_written.erase(m_written.lower_bound(size), m_written.end());
    if (!m_written.empty()) {
        auto& end = m_written.rbegin()->second;
        end = std::min(end, size);
    }
}

void ChangedRanges::clear() {
    m_written.clear();
    m_keptOfStored = UINT64_MAX;
}

}  // namespace cloudfs::mount
