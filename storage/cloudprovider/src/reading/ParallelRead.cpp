// SPDX-License-Identifier: Apache-2.0
#include "reading/ParallelRead.hpp"

#include "context/fetchRange.hpp"
#include "reading/PieceBuffer.hpp"
#include "support/Trace.hpp"
#include "support/interrupt.hpp"

#include <algorithm>
#include <ostream>
#include <utility>

namespace storage::cloudprovider {

namespace {

// A thread is to come to other files' transfers, too.
constexpr std::uint64_t kLargestShare = std::uint64_t{128} * 1024 * 1024;

// Refuses bytes after a failure; nobody is told.
struct Over {};

std::uint64_t countAtOnce(const OpenFileContext& context, const std::shared_ptr<TransferPool>& pool) {
    const auto useful = pool ? std::min(pool->mostThreads(), context.client->limits().UsefulDownloads) : 1;
    return std::max<std::uint64_t>(useful, 1);
}

}  // namespace

ParallelRead::ParallelRead(std::shared_ptr<OpenFileContext> context, StoredStart start, const PieceSink& sink,
                           const std::shared_ptr<TransferPool>& pool)
    : m_context(std::move(context)),
      m_start(std::move(start)),
      m_sink(sink),
      m_pool(pool),
      m_atOnce(countAtOnce(*m_context, pool)),
      m_isMainContext(foundation::isMainExecutionContext()),
      m_interrupts(foundation::InterruptScope::current()),
      m_taken(m_start.bytes.size()) {}

std::exception_ptr ParallelRead::run() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (auto failure = handOverStart()) {
        return failure;
    }
    requestHelp();
    while (const auto range = takeRange()) {
        fetch(*range);
    }
    auto failure = waitForOthers();
    const foundation::MutexLock lock(m_mutex);
    if (failure && !m_isFailureOfSink) {
        std::rethrow_exception(std::move(failure));
    }
    return failure;
}

std::exception_ptr ParallelRead::handOverStart() const noexcept {
    try {
        if (!m_start.bytes.empty()) {
            m_sink(0, m_start.bytes);
        }
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

// For no more threads than there is something to do for.
void ParallelRead::requestHelp() {
    const auto helpers = std::min((m_start.size - m_start.bytes.size()) / m_context->partSize, m_atOnce - 1);
    if (const auto pool = m_pool.lock(); pool && helpers != 0) {
        pool->request(shared_from_this(), helpers);
    }
}

std::size_t ParallelRead::transferOne() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const auto range = takeRange();
    if (!range) {
        return 0;
    }
    const CallersContext context(m_isMainContext, m_interrupts);
    fetch(*range);
    return 1;
}

std::optional<ObjectRange> ParallelRead::takeRange() {
    const foundation::MutexLock lock(m_mutex);
    const auto left = m_start.size - m_taken;
    if (left == 0 || m_failure) {
        return std::nullopt;
    }
    const auto share = std::min(left / m_atOnce, kLargestShare);
    const auto parts = std::max<std::uint64_t>((share + m_context->partSize - 1) / m_context->partSize, 1);
    const auto size = std::min(left, parts * m_context->partSize);
    const ObjectRange range{.First = m_taken, .Size = size, .IsWhole = size == m_start.size};
    m_taken += size;
    ++m_running;
    return range;
}

void ParallelRead::fetch(const ObjectRange& range) noexcept {
    std::exception_ptr failure;
    bool isOfSink = false;
    try {
        PieceBuffer pieces(range.First, range.Size,
                           [this](std::uint64_t offset, std::string_view bytes) { handOver(offset, bytes); });
        std::ostream stream(&pieces);
        try {
            throwIfInterrupted();
            fetchRange(*m_context, range, stream);
        } catch (...) {
            isOfSink = pieces.failure() != nullptr;
            failure = isOfSink ? pieces.failure() : std::current_exception();
        }
    } catch (...) {
        failure = std::current_exception();
    }
    finish(std::move(failure), isOfSink);
}

void ParallelRead::handOver(std::uint64_t offset, std::string_view bytes) {
    {
        const foundation::MutexLock lock(m_mutex);
        if (m_failure) {
            throw Over();
        }
    }
    m_sink(offset, bytes);
}

void ParallelRead::finish(std::exception_ptr failure, bool isOfSink) noexcept {
    const foundation::MutexLock lock(m_mutex);
    if (failure && !m_failure) {
        m_failure = std::move(failure);
        m_isFailureOfSink = isOfSink;
    }
    --m_running;
    m_finished.notifyAll();
}

// What they do ends with an interrupt, as it is the caller's: this need not look at it. The failure is the caller's
// alone afterwards: one that two threads have, and the last one deletes, is a race to checkers that do not see it
// counted.
std::exception_ptr ParallelRead::waitForOthers() {
    foundation::MutexLock lock(m_mutex);
    m_finished.wait(lock, [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return m_running == 0; });
    m_taken = m_start.size;
    return std::exchange(m_failure, nullptr);
}

}  // namespace storage::cloudprovider
