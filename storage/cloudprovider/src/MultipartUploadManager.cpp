// SPDX-License-Identifier: Apache-2.0
#include "MultipartUploadManager.hpp"

#include "Trace.hpp"
#include "translateException.hpp"

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <utility>

namespace storage::cloudprovider {

namespace {

// Opens a buffer for as long as it lives, unless it was open.
class ScopedOpen {
public:
    explicit ScopedOpen(Buffer& buffer) {
        if (!buffer.isOpen()) {
            buffer.open();
            m_opened = &buffer;
        }
    }
    ScopedOpen(const ScopedOpen&) = delete;
    ScopedOpen& operator=(const ScopedOpen&) = delete;
    ~ScopedOpen() {
        if (m_opened != nullptr) {
            try {
                m_opened->close();
            } catch (...) {
                traceCaughtException();
            }
        }
    }

private:
    Buffer* m_opened = nullptr;
};

}  // namespace

// A task on its way: taken out of the queue, and put back in front unless it was done.
class MultipartUploadManager::RunningTask {
public:
    // Call with the mutex held.
    RunningTask(MultipartUploadManager& manager, std::list<Task>::iterator task) : m_manager(manager) {
        m_manager.m_runningParts.insert(task->info.Index);
        m_task.splice(m_task.begin(), m_manager.m_queue, task);
    }
    RunningTask(const RunningTask&) = delete;
    RunningTask& operator=(const RunningTask&) = delete;
    ~RunningTask() {
        const std::lock_guard lock(m_manager.m_mutex);
        m_manager.m_runningParts.erase(m_task.front().info.Index);
        if (!m_isDone) {
            m_manager.m_queue.splice(m_manager.m_queue.begin(), m_task);
        }
        m_manager.m_taskEnded.notify_all();
    }

    void run() {
        m_manager.run(m_task.front());
        m_isDone = true;
    }

private:
    MultipartUploadManager& m_manager;
    std::list<Task> m_task;
    bool m_isDone = false;
};

MultipartUploadManager::MultipartUploadManager(std::shared_ptr<OpenFileContext> context)
    : m_context(std::move(context)) {}

void MultipartUploadManager::asyncUploadPart(PartInfo info, std::shared_ptr<Buffer> buffer, TagCallback onUploaded) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" info=", info);
    enqueueAndRun({std::move(info), std::move(buffer), std::move(onUploaded)});
}

void MultipartUploadManager::asyncReusePart(PartInfo info, TagCallback onUploaded) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" info=", info);
    enqueueAndRun({std::move(info), nullptr, std::move(onUploaded)});
}

std::string MultipartUploadManager::uploadPart(const PartInfo& info, const char* data) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" info=", info);
    const auto uploadId = acquireUploadId();
    boost::iostreams::stream<boost::iostreams::array_source> stream(data, static_cast<std::size_t>(info.Size));
    auto tag = m_context->client->uploadPart(m_context->key, uploadId, info, stream);
    const std::lock_guard lock(m_mutex);
    m_lastTag = tag;
    return tag;
}

std::string MultipartUploadManager::reusePart(const PartInfo& info) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" info=", info);
    const auto uploadId = acquireUploadId();
    return m_context->client->copyPart(m_context->key, uploadId, info);
}

void MultipartUploadManager::joinUploads() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    for (bool isDone = false; !isDone;) {
        runQueue();
        std::unique_lock lock(m_mutex);
        m_taskEnded.wait(lock, [this] { return m_runningParts.empty() || findRunnable(); });
        isDone = m_queue.empty() && m_runningParts.empty();
    }
}

void MultipartUploadManager::rerunFailedUploads() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    runQueue();
}

void MultipartUploadManager::complete(const std::vector<PartInfo>& parts) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    if (m_uploadStarted) {
        m_context->client->completeMultipartUpload(m_context->key, m_uploadId, parts);
        m_uploadId.clear();
        m_uploadStarted = false;
    }
}

void MultipartUploadManager::cancel() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_lock lock(m_mutex);
    const bool wasStarted = std::exchange(m_uploadStarted, false);
    const auto uploadId = std::exchange(m_uploadId, std::string());
    lock.unlock();
    if (wasStarted) {
        m_context->client->abortMultipartUpload(m_context->key, uploadId);
    }
}

void MultipartUploadManager::setLastTag(std::string tag) {
    const std::lock_guard lock(m_mutex);
    m_lastTag = std::move(tag);
}

bool MultipartUploadManager::isActive() const {
    const std::lock_guard lock(m_mutex);
    return m_uploadStarted || !m_queue.empty();
}

void MultipartUploadManager::enqueueAndRun(Task task) {
    {
        const std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(task));
    }
    runQueue();
}

void MultipartUploadManager::runQueue() {
    while (true) {
        std::optional<RunningTask> running;
        {
            const std::lock_guard lock(m_mutex);
            const auto task = findRunnable();
            if (!task) {
                return;
            }
            running.emplace(*this, *task);
        }
        running->run();
    }
}

void MultipartUploadManager::run(const Task& task) {
    if (!task.buffer) {
        task.onUploaded(reusePart(task.info));
        return;
    }
    std::string tag;
    {
        const ScopedOpen open(*task.buffer);
        tag = uploadPart(task.info, std::as_const(*task.buffer).data());
    }
    task.onUploaded(tag);
}

std::string MultipartUploadManager::acquireUploadId() {
    const std::lock_guard lock(m_mutex);
    if (!m_uploadStarted) {
        m_uploadId = m_context->client->startMultipartUpload(m_context->key, m_lastTag);
        m_uploadStarted = true;
    }
    return m_uploadId;
}

// The oldest task of a part that no other task is busy with. Call with the mutex held.
std::optional<std::list<MultipartUploadManager::Task>::iterator> MultipartUploadManager::findRunnable() {
    const auto task = std::find_if(m_queue.begin(), m_queue.end(), [this](const Task& candidate) {
        return m_runningParts.count(candidate.info.Index) == 0;
    });
    return task == m_queue.end() ? std::nullopt : std::optional(task);
}

}  // namespace storage::cloudprovider
