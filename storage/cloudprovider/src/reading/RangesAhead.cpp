// SPDX-License-Identifier: Apache-2.0
#include "reading/RangesAhead.hpp"

#include "context/fetchRange.hpp"
#include "support/Trace.hpp"
#include "support/interrupt.hpp"
#include "support/translateException.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace storage::cloudprovider {

namespace {

// More makes nothing faster, and costs memory.
constexpr std::uint64_t kLargestRange = std::uint64_t{16} * 1024 * 1024;

// Of a distant store a request's delay weighs half as much as with parts; objects of few parts are still divided among
// the threads.
std::uint64_t rangeSizeFor(std::uint64_t objectSize, std::uint64_t partSize, std::size_t atOnce) {
    const auto size = objectSize / 2 / partSize >= atOnce ? 2 * partSize : partSize;
    return std::min({size, kLargestRange, std::max<std::uint64_t>(objectSize, 1)});
}

std::size_t mostAhead(const OpenFileContext& context, const Engine& engine) {
    return engine.pool ? std::min(engine.pool->mostThreads(), context.client->limits().UsefulDownloads) : 0;
}

}  // namespace

RangesAhead::RangesAhead(std::shared_ptr<OpenFileContext> context, const Engine& engine, std::uint64_t size,
                         const std::string& start)
    : m_context(std::move(context)),
      m_pool(engine.pool),
      m_budget(engine.fetchBudget),
      m_mostAhead(mostAhead(*m_context, engine)),
      m_size(size),
      m_rangeSize(rangeSizeFor(size, m_context->partSize, m_mostAhead + 1)),
      m_window(std::min<std::size_t>(2, m_mostAhead + 1)) {
    if (const auto known = std::min<std::uint64_t>({start.size(), size, m_rangeSize}); known != 0) {
        Slot slot{.first = 0, .size = known, .state = State::Kept};
        slot.room.bytes = std::make_unique_for_overwrite<char[]>(m_rangeSize);
        std::memcpy(slot.room.bytes.get(), start.data(), known);
        m_slots.push_back(std::move(slot));
        m_end = known;
    }
}

std::string_view RangesAhead::bytes() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    addRanges(leaveFirst());
    if (m_slots.empty()) {
        return {};
    }
    waitForFirst();
    const auto& first = m_slots.front();
    return {first.room.bytes.get() + m_used, static_cast<std::size_t>(first.size) - m_used};
}

void RangesAhead::use(std::size_t count) {
    m_used += count;
}

void RangesAhead::stop() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    Slots removed;
    const foundation::MutexLock lock(m_mutex);
    m_isStopped = true;
    for (auto slot = m_slots.begin(); slot != m_slots.end();) {
        const auto at = slot++;
        if (at->state != State::Fetching) {
            removed.splice(removed.end(), m_slots, at);
        }
    }
}

// Once all of it was used its memory is for the next one.
std::optional<RangesAhead::Room> RangesAhead::leaveFirst() {
    if (m_slots.empty() || m_used < m_slots.front().size) {
        return std::nullopt;
    }
    Slots left;
    {
        const foundation::MutexLock lock(m_mutex);
        left.splice(left.end(), m_slots, m_slots.begin());
    }
    m_used = 0;
    m_window = std::min(2 * m_window, m_mostAhead + 1);
    return std::move(left.front().room);
}

void RangesAhead::addRanges(std::optional<Room> room) {
    Slots added;
    auto end = m_end;
    bool hasOwn = std::any_of(m_slots.begin(), m_slots.end(), [](const Slot& slot) { return !slot.room.share; });
    while (end < m_size && m_slots.size() + added.size() < m_window) {
        if (!room && hasOwn) {
            auto share = m_budget ? m_budget->take() : FetchBudget::Share();
            if (!share) {
                break;
            }
            room.emplace().share = std::move(share);
        }
        Slot slot{.first = end, .size = std::min(m_size - end, m_rangeSize - end % m_rangeSize)};
        if (room) {
            slot.room = *std::exchange(room, std::nullopt);
        }
        hasOwn = hasOwn || !slot.room.share;
        end += slot.size;
        added.push_back(std::move(slot));
    }
    if (added.empty()) {
        return;
    }
    const auto count = added.size();
    {
        const foundation::MutexLock lock(m_mutex);
        m_isMainContext = foundation::isMainExecutionContext();
        m_interrupts = foundation::InterruptScope::current();
        m_slots.splice(m_slots.end(), added);
    }
    m_end = end;
    if (const auto pool = m_pool.lock()) {
        pool->request(shared_from_this(), count);
    }
}

void RangesAhead::waitForFirst() {
    const auto first = m_slots.begin();
    {
        foundation::MutexLock lock(m_mutex);
        while (!m_fetched.waitFor(lock, kInterruptInterval, [&] { return first->state != State::Fetching; })) {
            lock.unlock();
            throwIfInterrupted();
            lock.lock();
        }
        if (first->state == State::Kept) {
            return;
        }
        first->state = State::Fetching;
    }
    try {
        fetch(*first);
    } catch (...) {
        finish(first, false);
        throw;
    }
    finish(first, true);
}

std::size_t RangesAhead::transferOne() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    foundation::MutexLock lock(m_mutex);
    const auto slot =
        std::find_if(m_slots.begin(), m_slots.end(), [](const Slot& each) { return each.state == State::Queued; });
    if (slot == m_slots.end()) {
        return 0;
    }
    slot->state = State::Fetching;
    const CallersContext context(m_isMainContext, m_interrupts);
    lock.unlock();
    bool isFetched = false;
    try {
        fetch(*slot);
        isFetched = true;
    } catch (...) {
        traceCaughtException();
    }
    finish(slot, isFetched);
    return 0;
}

void RangesAhead::fetch(Slot& slot) const {
    if (!slot.room.bytes) {
        slot.room.bytes = std::make_unique_for_overwrite<char[]>(m_rangeSize);
    }
    fetchRange(*m_context, {.First = slot.first, .Size = slot.size, .IsWhole = slot.size == m_size},
               slot.room.bytes.get());
}

void RangesAhead::finish(Slots::iterator slot, bool isFetched) noexcept {
    Slots removed;
    const foundation::MutexLock lock(m_mutex);
    if (m_isStopped) {
        removed.splice(removed.end(), m_slots, slot);
    } else {
        slot->state = isFetched ? State::Kept : State::Queued;
    }
    m_fetched.notifyAll();
}

}  // namespace storage::cloudprovider
