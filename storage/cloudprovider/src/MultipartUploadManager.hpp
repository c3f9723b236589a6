// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Buffer.hpp"
#include "OpenFileContext.hpp"

#include <storage/cloudprovider/PartInfo.hpp>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// The multipart upload of one open object: started when the first part is sent or reused, ended by complete or cancel.
///
/// It starts no thread: whoever adds a task runs the queue before returning. A task that fails goes back to
/// the front of the queue before its failure leaves, and the next run tries it again. Tasks of one part never
/// run at once; tasks of different parts do when several threads run the queue. Errors   what the client
/// throws, out of whichever operation ran the queue. Threads  any.
class MultipartUploadManager {
public:
    /// Receives the tag that the store gave to a part.
    using TagCallback = std::function<void(const std::string& tag)>;

    explicit MultipartUploadManager(std::shared_ptr<OpenFileContext> context);
    MultipartUploadManager(const MultipartUploadManager&) = delete;
    MultipartUploadManager& operator=(const MultipartUploadManager&) = delete;

    /// Queue the sending of the first info.Size bytes of buffer, and run the queue. The buffer is opened for
    /// the time of the client's call, unless it is open.
    void asyncUploadPart(PartInfo info, std::shared_ptr<Buffer> buffer, TagCallback onUploaded);

    /// Queue the reuse of the stored object's bytes, and run the queue.
    void asyncReusePart(PartInfo info, TagCallback onUploaded);

    /// Send info.Size bytes now; answers the tag.
    std::string uploadPart(const PartInfo& info, const char* data);

    /// Reuse stored bytes now; answers the tag.
    std::string reusePart(const PartInfo& info);

    /// Run the queue until it is empty and no other thread runs a task of it.
    void joinUploads();

    /// Run what is queued, which without concurrent callers is what failed before.
    void rerunFailedUploads();

    /// Complete the upload with these parts, in order and with their tags; does nothing when none was
    /// started. When it fails the upload is left for cancel.
    void complete(const std::vector<PartInfo>& parts);

    /// Give the upload up; does nothing when none was started. It is forgotten even if the client fails.
    void cancel();

    /// Set the tag that the upload will be started with, until a part is sent.
    void setLastTag(std::string tag);

    /// Whether an upload was started and has not ended, or a task is queued.
    bool isActive() const;

private:
    struct Task {
        PartInfo info;
        std::shared_ptr<Buffer> buffer;  // empty for a reuse
        TagCallback onUploaded;
    };
    class RunningTask;

    void enqueueAndRun(Task task);
    void runQueue();
    void run(const Task& task);
    std::string acquireUploadId();
    std::optional<std::list<Task>::iterator> findRunnable();

    const std::shared_ptr<OpenFileContext> m_context;

    // Guards what follows. Held while the client starts and completes the upload, so that neither happens
    // twice; not while parts are sent or copied. No other mutex is taken under it.
    mutable std::mutex m_mutex;
    std::condition_variable m_taskEnded;
    bool m_uploadStarted = false;
    std::string m_uploadId;
    std::string m_lastTag;
    std::list<Task> m_queue;                 // a list: putting a task back must not fail
    std::set<std::uint64_t> m_runningParts;  // indices of the parts whose tasks run now
};

}  // namespace storage::cloudprovider
