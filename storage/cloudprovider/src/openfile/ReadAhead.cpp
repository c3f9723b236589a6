// SPDX-License-Identifier: Apache-2.0
#include "openfile/ReadAhead.hpp"

#include "support/Trace.hpp"
#include "support/translateException.hpp"

#include <algorithm>
#include <utility>

namespace storage::cloudprovider {

ReadAhead::ReadAhead(const std::shared_ptr<TransferPool>& pool) : m_pool(pool) {}

std::vector<OpenPartHold> ReadAhead::want(const std::vector<Part>& parts) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::vector<OpenPartHold> dropped;
    std::list<Slot> added;
    std::list<Slot> removed;
    {
        const foundation::MutexLock lock(m_mutex);
        dropped.reserve(m_slots.size());
        for (const auto& part : parts) {
            const auto isIt = [&](const Slot& slot) { return slot.part == part && slot.isWanted; };
            if (std::none_of(m_slots.begin(), m_slots.end(), isIt)) {
                added.push_back({.part = part});
            }
        }
        for (auto slot = m_slots.begin(); slot != m_slots.end();) {
            const auto at = slot++;
            if (std::find(parts.begin(), parts.end(), at->part) != parts.end()) {
                continue;
            }
            at->isWanted = false;
            if (at->state == State::Kept) {
                dropped.push_back(std::move(*at->hold));
                at->hold.reset();
            }
            if (at->state != State::Fetching) {
                removed.splice(removed.end(), m_slots, at);
            }
        }
    }
    const auto count = added.size();
    {
        const foundation::MutexLock lock(m_mutex);
        m_slots.splice(m_slots.end(), added);
    }
    if (const auto pool = m_pool.lock(); pool && count != 0) {
        pool->request(shared_from_this(), count);
    }
    return dropped;
}

std::size_t ReadAhead::transferOne() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    foundation::MutexLock lock(m_mutex);
    const auto slot =
        std::find_if(m_slots.begin(), m_slots.end(), [](const Slot& each) { return each.state == State::Queued; });
    if (slot == m_slots.end()) {
        return 0;
    }
    slot->state = State::Fetching;
    lock.unlock();
    std::optional<OpenPartHold> hold;
    try {
        hold.emplace(slot->part);
    } catch (...) {
        traceCaughtException();
    }
    finish(slot, std::move(hold));
    return 0;
}

// Keeps what was fetched, unless the stream has gone elsewhere meanwhile.
void ReadAhead::finish(std::list<Slot>::iterator slot, std::optional<OpenPartHold> hold) noexcept {
    std::list<Slot> removed;
    {
        const foundation::MutexLock lock(m_mutex);
        if (slot->isWanted && hold) {
            slot->hold.emplace(std::move(*hold));
            slot->state = State::Kept;
            return;
        }
        removed.splice(removed.end(), m_slots, slot);
    }
    if (hold) {
        hold.reset();
        removed.front().part->discardIfUnmodified();  // not into the cache, whose room is for what was read
    }
}

}  // namespace storage::cloudprovider
