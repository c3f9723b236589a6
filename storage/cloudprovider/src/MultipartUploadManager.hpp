// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OpenFileContext.hpp"
#include "PartTransfer.hpp"

#include <storage/cloudprovider/PartInfo.hpp>

#include <condition_variable>
#include <cstdint>
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
/// It starts no thread: whoever adds a task runs the queue before returning. A part is queued at most once; what is
/// sent of it is decided when its task starts. A task that fails goes back to the front of the queue before its failure
/// leaves, and the next run tries it again. Tasks of one part never run at once; tasks of different parts do when
/// several threads run the queue.
/// Errors   what the client throws, out of whichever operation ran the queue.
/// Threads  any.
class MultipartUploadManager {
public:
    explicit MultipartUploadManager(std::shared_ptr<OpenFileContext> context);
    MultipartUploadManager(const MultipartUploadManager&) = delete;
    MultipartUploadManager& operator=(const MultipartUploadManager&) = delete;

    /// Queue the sending of the part of that index, and run the queue. A failure of a part that was changed meanwhile
    /// is not thrown: its change hands it over again.
    void asyncUploadPart(std::uint64_t index, std::unique_ptr<PartTransfer> part);

    /// Queue the reuse of the stored object's bytes, and run the queue.
    void asyncReusePart(std::uint64_t index, std::unique_ptr<PartTransfer> part);

    /// Send info.Size bytes now; answers the tag.
    std::string uploadPart(const PartInfo& info, const char* data);

    /// Reuse stored bytes now; answers the tag. ObjectReplacedException when they are no longer stored.
    std::string reusePart(const PartInfo& info);

    /// Run the queue until it is empty and no other thread runs a task of it. Every failure is thrown.
    void joinUploads();

    /// Run what is queued, which without concurrent callers is what failed before. Failures as in asyncUploadPart.
    void rerunFailedUploads();

    /// Complete the upload with these parts, in order and with their tags, over what is expected; answers the version
    /// that was stored. Does nothing when no upload was started. When it fails the upload is left for cancel.
    std::string complete(const std::vector<PartInfo>& parts, const ExpectedObject& expected);

    /// Give the upload up with all tasks that do not run; does nothing when none was started. It is forgotten even if
    /// the client fails.
    void cancel();

    /// Set the tag that the upload will be started with, until a part is sent. A completed upload leaves none: how the
    /// store names the parts now is not known.
    void setLastTag(std::string tag);

    /// Whether an upload was started and has not ended, or a task is queued.
    bool isActive() const;

private:
    struct Task {
        std::uint64_t index;
        std::unique_ptr<PartTransfer> part;
    };
    using Tasks = std::list<Task>;  // nodes change lists without failing
    class RunningTask;

    // Whether the failure of a part that was changed meanwhile is thrown.
    enum class ChangedParts { MayFail, MustNotFail };

    void enqueueAndRun(Task task);
    void runQueue(ChangedParts changedParts);
    std::string transfer(const PartInfo& record, const char* data);
    std::string acquireUploadId();

    // With m_mutex held.
    Tasks::iterator findQueued(std::uint64_t index);
    Tasks::iterator findRunnable();

    const std::shared_ptr<OpenFileContext> m_context;

    // Guards what follows. Held while the client starts and completes the upload, so that neither happens
    // twice; not while parts are sent or copied. No other mutex is taken under it.
    mutable std::mutex m_mutex;
    std::condition_variable m_taskEnded;
    bool m_uploadStarted = false;
    std::string m_uploadId;
    std::string m_lastTag;
    Tasks m_queue;                           // one task a part at most
    std::set<std::uint64_t> m_runningParts;  // indices of the parts whose tasks run now
};

}  // namespace storage::cloudprovider
