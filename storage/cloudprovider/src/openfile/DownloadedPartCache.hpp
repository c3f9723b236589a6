// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "openfile/OpenPartBuffer.hpp"

#include <foundation/threads/Mutex.hpp>

#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>

namespace storage::cloudprovider {

/// Remembers closed parts in the order of their closing, and which of them no longer fit into a limit of
/// bytes. A part weighs its capacity, the size of its local buffer. Threads: any.
class DownloadedPartCache {
public:
    using Part = std::shared_ptr<OpenPartBuffer>;
    using Parts = std::list<Part>;

    /// limit in bytes.
    explicit DownloadedPartCache(std::uint64_t limit);

    /// Add a part, or move it to the young end. Answers the oldest parts, which no longer fit and were taken
    /// out: a part that alone exceeds the limit is among them. Throws std::bad_alloc, having added nothing.
    Parts add(const Part& part);

    /// Take a part out, if it is there.
    void remove(const Part& part);

private:
    // Move an entry into taken, which keeps its part alive: a part's end is no work for under the lock.
    void take(Parts::iterator entry, Parts& taken) CLOUDPROVIDER_REQUIRES(m_mutex);

    const std::uint64_t m_limit;

    // Taken alone, no part's mutex under it.
    foundation::Mutex m_mutex;
    Parts m_entries CLOUDPROVIDER_GUARDED_BY(m_mutex);  // oldest first
    std::unordered_map<const OpenPartBuffer*, Parts::iterator> m_positions CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::uint64_t m_total CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;  // bytes
};

}  // namespace storage::cloudprovider
