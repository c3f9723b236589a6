// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"
#include "context/TransferPool.hpp"
#include "reading/describeStart.hpp"

#include <foundation/services/InterruptScope.hpp>
#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/readInPieces.hpp>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>

namespace storage::cloudprovider {

/// Hands over an object: its start, and the rest by ranges that are fetched on the caller's thread and a pool's; see
/// readInPieces. The version is the one that the context says.
///
/// Whoever is free takes what would be its share of all that is left: the ranges are as large as can be, for each costs
/// a request, and yet all end at about the same time. The first failure ends it: the others are refused their next
/// byte.
///
/// Threads  one caller; the pool's call transferOne.
class ParallelRead : public TransferSource, public std::enable_shared_from_this<ParallelRead> {
public:
    /// start: what describeStart told. sink: must live until run has returned. pool: may be empty.
    ParallelRead(std::shared_ptr<OpenFileContext> context, StoredStart start, const PieceSink& sink,
                 const std::shared_ptr<TransferPool>& pool);

    /// Hand over all, once. Nobody calls sink any more afterwards.
    ///
    /// Result   what sink threw, if it did.
    /// Errors   what the client throws, and fetchRange.
    std::exception_ptr run();

    std::size_t transferOne() noexcept override;

private:
    std::exception_ptr handOverStart() const noexcept;
    void requestHelp();
    std::optional<ObjectRange> takeRange();
    void fetch(const ObjectRange& range) noexcept;
    void handOver(std::uint64_t offset, std::string_view bytes);
    void finish(std::exception_ptr failure, bool isOfSink) noexcept;
    std::exception_ptr waitForOthers();

    const std::shared_ptr<OpenFileContext> m_context;
    const StoredStart m_start;
    const PieceSink& m_sink;
    const std::weak_ptr<TransferPool> m_pool;  // weak: the last owner of this may be one of its threads
    const std::uint64_t m_atOnce;
    // Of the caller: the host's interrupt reaches it there, and its own.
    const bool m_isMainContext;
    const std::shared_ptr<const foundation::InterruptSource> m_interrupts;

    foundation::Mutex m_mutex;  // a leaf
    foundation::ConditionVariable m_finished;
    std::uint64_t m_taken CLOUDPROVIDER_GUARDED_BY(m_mutex);  // where what nobody has taken begins
    std::size_t m_running CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    std::exception_ptr m_failure CLOUDPROVIDER_GUARDED_BY(m_mutex);  // the first one
    bool m_isFailureOfSink CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
};

}  // namespace storage::cloudprovider
