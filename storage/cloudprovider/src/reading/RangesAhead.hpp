// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/Engine.hpp"
#include "context/FetchBudget.hpp"
#include "context/OpenFileContext.hpp"
#include "context/TransferPool.hpp"

#include <foundation/services/InterruptScope.hpp>
#include <foundation/threads/Mutex.hpp>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace storage::cloudprovider {

/// The bytes of an object from its beginning to its end, in ranges that a pool's threads fetch ahead into memory. The
/// version is the one that the context says.
///
/// The more ranges have been used the more are fetched ahead, up to what the pool, the store and the budget allow, so
/// that who reads only the beginning has little fetched for nothing. A fetch ahead that fails is nobody's failure:
/// whoever comes to that range fetches it again. Without a pool each range is fetched when it is reached.
///
/// Errors   what the client throws; OperationInterrupted while waiting.
/// Threads  one reader; the pool's call transferOne.
class RangesAhead : public TransferSource, public std::enable_shared_from_this<RangesAhead> {
public:
    /// size: of the object. start: its first bytes, as far as they are there already.
    RangesAhead(std::shared_ptr<OpenFileContext> context, const Engine& engine, std::uint64_t size,
                const std::string& start);

    /// The bytes behind those that were used, as many as there are in one piece: fetched, or waited for. None only at
    /// the end. They stay until the next call of an operation.
    std::string_view bytes();

    /// Count bytes that the last call of bytes answered as used.
    void use(std::size_t count);

    /// Fetch nothing more, and let all bytes go. What is on its way is dropped when it arrives.
    void stop() noexcept;

    std::size_t transferOne() noexcept override;

private:
    enum class State { Queued, Fetching, Kept };
    /// Memory for a range; without a share it is the one that each reader may have anyway.
    struct Room {
        std::unique_ptr<char[]> bytes{};
        FetchBudget::Share share{};
    };
    struct Slot {
        std::uint64_t first;
        std::uint64_t size;
        Room room{};
        State state = State::Queued;
    };
    using Slots = std::list<Slot>;  // nodes change lists without failing

    std::optional<Room> leaveFirst();
    void addRanges(std::optional<Room> room);
    void waitForFirst();
    void fetch(Slot& slot) const;
    void finish(Slots::iterator slot, bool isFetched) noexcept;

    const std::shared_ptr<OpenFileContext> m_context;
    const std::weak_ptr<TransferPool> m_pool;  // weak: the last owner of this may be one of its threads
    const std::shared_ptr<FetchBudget> m_budget;
    const std::size_t m_mostAhead;
    const std::uint64_t m_size;
    const std::uint64_t m_rangeSize;

    // The reader's own.
    std::uint64_t m_end = 0;  // of the last range in the list
    std::size_t m_used = 0;   // of the first one's bytes
    std::size_t m_window;     // how many to hold, the first one included

    foundation::Mutex m_mutex;  // a leaf
    foundation::ConditionVariable m_fetched;
    // In order; the reader is at the first. Changes under the mutex; the reader, who alone adds ranges, looks at them
    // without it.
    Slots m_slots;
    // Of the reader: the host's interrupt reaches it there, and its own.
    bool m_isMainContext CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    std::shared_ptr<const foundation::InterruptSource> m_interrupts CLOUDPROVIDER_GUARDED_BY(m_mutex);
    bool m_isStopped CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
};

}  // namespace storage::cloudprovider
