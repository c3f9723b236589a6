// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/TransferPool.hpp"
#include "openfile/OpenPartHold.hpp"

#include <foundation/threads/Mutex.hpp>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <vector>

namespace storage::cloudprovider {

/// Has the parts that a stream comes to next fetched by a pool's threads, and keeps them open for it.
///
/// A part counts as open from the start of its fetch, not while it is queued. A fetch that fails is nobody's failure:
/// whoever reads the part fetches it again.
/// Threads  any; the pool's call transferOne.
class ReadAhead : public TransferSource, public std::enable_shared_from_this<ReadAhead> {
public:
    using Part = std::shared_ptr<OpenPartBuffer>;

    explicit ReadAhead(const std::shared_ptr<TransferPool>& pool);

    /// Want these parts and no others. Answers those that were kept open and are no longer wanted, to be given back.
    /// What is being fetched and no longer wanted is given up when it arrives.
    std::vector<OpenPartHold> want(const std::vector<Part>& parts);

    std::size_t transferOne() noexcept override;

private:
    enum class State { Queued, Fetching, Kept };
    struct Slot {
        Part part;
        State state = State::Queued;
        bool isWanted = true;
        std::optional<OpenPartHold> hold{};
    };

    void finish(std::list<Slot>::iterator slot, std::optional<OpenPartHold> hold) noexcept;

    const std::weak_ptr<TransferPool> m_pool;  // weak: the last owner of this may be one of its threads

    foundation::Mutex m_mutex;  // a leaf
    std::list<Slot> m_slots CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider
