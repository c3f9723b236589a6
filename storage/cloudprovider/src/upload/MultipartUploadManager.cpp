// SPDX-License-Identifier: Apache-2.0
#include "upload/MultipartUploadManager.hpp"

#include "context/ObjectReplacedException.hpp"
#include "support/Trace.hpp"
#include "support/interrupt.hpp"
#include "support/translateException.hpp"

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <cassert>
#include <optional>
#include <utility>

namespace storage::cloudprovider {

// A task on its way: taken out of the queue, and put back in front unless it was done.
class MultipartUploadManager::RunningTask {
public:
    enum class Runner { Caller, Pool };

    RunningTask(MultipartUploadManager& manager, Tasks::iterator task, Runner runner)
        CLOUDPROVIDER_REQUIRES(manager.m_mutex)
        : m_manager(manager), m_pooled(runner == Runner::Pool ? 1 : 0) {
        const bool isFirst = m_manager.m_runningParts.insert(task->index).second;
        assert(isFirst && "a part is sent by one task at a time");
        static_cast<void>(isFirst);
        m_task.splice(m_task.begin(), m_manager.m_queue, task);
        m_manager.m_pooled += m_pooled;
    }
    RunningTask(const RunningTask&) = delete;
    RunningTask& operator=(const RunningTask&) = delete;
    ~RunningTask() {
        if (m_isDone) {
            m_task.front()
                .part.reset();  // whoever waits for the task finds its part's file gone, if this was the last owner
        }
        const foundation::MutexLock lock(m_manager.m_mutex);
        m_manager.m_runningParts.erase(m_task.front().index);
        m_manager.m_pooled -= m_pooled;
        // While it ran the part may have been queued again, and that is as good.
        if (!m_isDone && m_manager.findQueued(m_task.front().index) == m_manager.m_queue.end()) {
            m_manager.m_queue.splice(m_manager.m_queue.begin(), m_task);
        }
        m_manager.m_hasFailed = m_manager.m_hasFailed || !m_isDone;
        m_manager.m_taskEnded.notifyAll();
    }

    void run(ChangedParts changedParts) {
        while (transferOnce(changedParts)) {
        }
        m_isDone = true;
    }

    const Task& task() const { return m_task.front(); }

private:
    // Tells whether the part is to be transferred once more.
    bool transferOnce(ChangedParts changedParts) {
        auto& part = *m_task.front().part;
        if (!part.begin()) {
            return false;
        }
        try {
            part.transfer(m_manager);
            return part.succeed();
        } catch (...) {
            const bool isSentAgain = part.fail();
            if (!isSentAgain || changedParts == ChangedParts::MayFail) {
                throw;
            }
            traceCaughtException();
            return false;
        }
    }

    MultipartUploadManager& m_manager;
    const std::size_t m_pooled;  // 1 for a task of the pool
    Tasks m_task;
    bool m_isDone = false;
};

MultipartUploadManager::MultipartUploadManager(std::shared_ptr<OpenFileContext> context,
                                               const std::shared_ptr<TransferPool>& pool)
    : m_context(std::move(context)),
      m_pool(pool),
      m_poolThreads(pool ? pool->mostThreads() : 0),
      m_mostPooled(std::max<std::size_t>(m_context->client->limits().UsefulUploads, 1)) {}

void MultipartUploadManager::asyncUploadPart(std::uint64_t index, std::unique_ptr<PartTransfer> part) {
    CLOUDPROVIDER_TRACE_FUNCTION(" index=", index);
    enqueueAndRun(index, std::move(part));
}

void MultipartUploadManager::asyncReusePart(std::uint64_t index, std::unique_ptr<PartTransfer> part) {
    CLOUDPROVIDER_TRACE_FUNCTION(" index=", index);
    enqueueAndRun(index, std::move(part));
}

void MultipartUploadManager::queuePart(std::uint64_t index, std::unique_ptr<PartTransfer> part) {
    CLOUDPROVIDER_TRACE_FUNCTION(" index=", index);
    Tasks added;
    added.push_back(
        {index, std::move(part), foundation::isMainExecutionContext(), foundation::InterruptScope::current()});
    {
        const foundation::MutexLock lock(m_mutex);
        if (const auto queued = findQueued(index); queued != m_queue.end()) {
            std::swap(*queued, added.front());  // an upload takes the place of a reuse
        } else {
            m_queue.splice(m_queue.end(), added);
        }
    }
    requestThreads(1);
}

std::string MultipartUploadManager::uploadPart(const PartInfo& info, const char* data) {
    CLOUDPROVIDER_TRACE_FUNCTION(" info=", info);
    const auto uploadId = acquireUploadId(info.Index + 1);
    boost::iostreams::stream<boost::iostreams::array_source> stream(data, static_cast<std::size_t>(info.Size));
    auto tag = m_context->client->uploadPart(m_context->key, uploadId, info, stream);
    const foundation::MutexLock lock(m_mutex);
    m_lastTag = tag;
    return tag;
}

std::vector<PartInfo> MultipartUploadManager::reusePart(const std::vector<PartInfo>& run) {
    CLOUDPROVIDER_TRACE_FUNCTION(" info=", run.front(), " count=", run.size());
    const auto uploadId = acquireUploadId(run.back().Index + 1);
    const auto version = m_context->version.get();
    return onVersion(*m_context, version,
                     [&] { return m_context->client->copyRun(m_context->key, uploadId, run, version); });
}

void MultipartUploadManager::joinUploads() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    for (bool isDone = false; !isDone;) {
        runQueue(ChangedParts::MayFail, 0);
        waitForTasks();
        const foundation::MutexLock lock(m_mutex);
        isDone = m_queue.empty() && m_runningParts.empty();
    }
}

void MultipartUploadManager::rerunFailedUploads() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    runQueue(ChangedParts::MustNotFail, mostLeft());
}

void MultipartUploadManager::makeRoom() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    runQueue(ChangedParts::MustNotFail, m_poolThreads);
}

std::string MultipartUploadManager::complete(const std::vector<PartInfo>& parts, const ExpectedObject& expected) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    std::string version;
    if (m_uploadStarted) {
        version = m_context->client->completeUploadOver(m_context->key, m_uploadId, parts, expected);
        m_uploadId.clear();
        m_uploadStarted = false;
        m_end = 0;
        m_lastTag.clear();
    }
    return version;
}

void MultipartUploadManager::cancel() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    Tasks dropped;  // destroyed outside the lock
    Tasks failed;
    foundation::MutexLock lock(m_mutex);
    dropped.swap(m_queue);
    m_taskEnded.wait(lock, [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return m_runningParts.empty(); });
    failed.swap(m_queue);
    m_hasFailed = false;
    m_end = 0;
    const bool wasStarted = std::exchange(m_uploadStarted, false);
    const auto uploadId = std::exchange(m_uploadId, std::string());
    lock.unlock();
    if (wasStarted) {
        m_context->client->abortMultipartUpload(m_context->key, uploadId);
    }
}

void MultipartUploadManager::setLastTag(std::string tag) {
    const foundation::MutexLock lock(m_mutex);
    m_lastTag = std::move(tag);
}

bool MultipartUploadManager::isActive() const {
    const foundation::MutexLock lock(m_mutex);
    return m_uploadStarted || !m_queue.empty() || !m_runningParts.empty();
}

bool MultipartUploadManager::reachesPast(std::uint64_t index) const {
    const foundation::MutexLock lock(m_mutex);
    return m_end > index || m_runningParts.lower_bound(index) != m_runningParts.end();
}

std::size_t MultipartUploadManager::transferOne() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    try {
        std::optional<RunningTask> running;
        {
            const foundation::MutexLock lock(m_mutex);
            const auto task = findRunnable();
            if (m_hasFailed || m_queue.empty()) {
                return 0;
            }
            if (m_pooled == m_mostPooled || task == m_queue.end()) {
                ++m_declined;
                return 0;
            }
            running.emplace(*this, task, RunningTask::Runner::Pool);
        }
        const CallersContext context(running->task().isMainContext, running->task().interrupts);
        running->run(ChangedParts::MustNotFail);
    } catch (...) {
        traceCaughtException();  // the task is queued again, for somebody whom its failure can be told
    }
    return takeDeclined();
}

void MultipartUploadManager::enqueueAndRun(std::uint64_t index, std::unique_ptr<PartTransfer> part) {
    queuePart(index, std::move(part));
    runQueue(ChangedParts::MustNotFail, mostLeft());
}

// Runs tasks on the calling thread while more than so many are left, queued or running, and after a failure.
void MultipartUploadManager::runQueue(ChangedParts changedParts, std::size_t mostLeft) {
    while (true) {
        std::optional<RunningTask> running;
        std::size_t left = 0;
        bool isAfterFailure = false;
        {
            const foundation::MutexLock lock(m_mutex);
            const auto task = findRunnable();
            const bool isCrowded = m_queue.size() + m_runningParts.size() > mostLeft;
            if (task == m_queue.end() || (!isCrowded && !m_hasFailed)) {
                return;
            }
            running.emplace(*this, task, RunningTask::Runner::Caller);
            isAfterFailure = std::exchange(m_hasFailed, false);
            left = m_queue.size();
        }
        running->run(changedParts);
        running.reset();
        requestThreads(takeDeclined());
        if (isAfterFailure) {
            requestThreads(left);  // what was asked of the pool before came to nothing
        }
    }
}

void MultipartUploadManager::requestThreads(std::size_t count) noexcept {
    if (const auto pool = m_pool.lock(); pool && count != 0) {
        pool->request(shared_from_this(), count);
    }
}

// A task has ended: what the pool could not run before it may run now.
std::size_t MultipartUploadManager::takeDeclined() noexcept {
    const foundation::MutexLock lock(m_mutex);
    return std::exchange(m_declined, 0);
}

// Until no task runs, or there is one that can be run.
void MultipartUploadManager::waitForTasks() {
    foundation::MutexLock lock(m_mutex);
    const auto isOver = [this]() CLOUDPROVIDER_REQUIRES(m_mutex) {
        return m_runningParts.empty() || findRunnable() != m_queue.end();
    };
    while (!m_taskEnded.waitFor(lock, kInterruptInterval, isOver)) {
        lock.unlock();
        throwIfInterrupted();
        lock.lock();
    }
}

// end: past the part that is about to be given to the upload.
std::string MultipartUploadManager::acquireUploadId(std::uint64_t end) {
    const foundation::MutexLock lock(m_mutex);
    if (!m_uploadStarted) {
        m_uploadId = m_context->client->startMultipartUpload(m_context->key, m_lastTag);
        m_uploadStarted = true;
    }
    m_end = std::max(m_end, end);
    return m_uploadId;
}

MultipartUploadManager::Tasks::iterator MultipartUploadManager::findQueued(std::uint64_t index) {
    const auto isIt = [index](const Task& task) { return task.index == index; };
    assert(std::count_if(m_queue.begin(), m_queue.end(), isIt) <= 1 && "a part is queued at most once");
    return std::find_if(m_queue.begin(), m_queue.end(), isIt);
}

// The oldest task of a part that no other task is busy with.
MultipartUploadManager::Tasks::iterator MultipartUploadManager::findRunnable() {
    return std::find_if(m_queue.begin(), m_queue.end(), [this](const Task& candidate) CLOUDPROVIDER_REQUIRES(m_mutex) {
        return m_runningParts.count(candidate.index) == 0;
    });
}

}  // namespace storage::cloudprovider
