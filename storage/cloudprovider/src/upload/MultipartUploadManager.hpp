// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"
#include "context/TransferPool.hpp"
#include "upload/PartTransfer.hpp"

#include <foundation/services/InterruptScope.hpp>
#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/PartInfo.hpp>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace storage::cloudprovider {

/// The multipart upload of one open object: started when the first part is sent or reused, ended by complete or cancel.
///
/// The queue is worked on by the pool's threads; when twice as many tasks as those are queued or run, whoever adds one
/// more works, too, and the threads do not run out of tasks meanwhile: without a pool until the queue is empty. A part
/// is queued at most once; what is sent of it is decided when its task starts. A task that fails goes back to the front
/// of the queue before its failure leaves, and the pool stops working on the queue: whoever next adds a task, reruns or
/// joins tries it again, and gets the failure if it lasts. Tasks of one part never run at once. A task takes no gate,
/// owns no part manager and waits for no other task. Of the pool's threads no more work at once than the store says are
/// useful.
///
/// Errors   what the client throws, out of whichever operation ran the queue.
/// Threads  any. Waiting for tasks that others run looks at the host's interrupt.
class MultipartUploadManager : public TransferSource, public std::enable_shared_from_this<MultipartUploadManager> {
public:
    /// Without a pool, or once it has gone, the callers' threads do it all.
    explicit MultipartUploadManager(std::shared_ptr<OpenFileContext> context,
                                    const std::shared_ptr<TransferPool>& pool = nullptr);
    MultipartUploadManager(const MultipartUploadManager&) = delete;
    MultipartUploadManager& operator=(const MultipartUploadManager&) = delete;

    /// Queue the sending of the part of that index, and work on the queue. A failure of a part that was changed
    /// meanwhile is not thrown: its change hands it over again.
    void asyncUploadPart(std::uint64_t index, std::unique_ptr<PartTransfer> part);

    /// Queue the reuse of the stored object's bytes, of one part or of neighbours from that index on, and work on the
    /// queue.
    void asyncReusePart(std::uint64_t index, std::unique_ptr<PartTransfer> part);

    /// Queue the sending of a part for the pool's threads, and leave the queue to them, or to whoever works on it next.
    void queuePart(std::uint64_t index, std::unique_ptr<PartTransfer> part);

    /// Send info.Size bytes now; answers the tag.
    std::string uploadPart(const PartInfo& info, const char* data);

    /// Reuse the stored bytes of neighbouring parts now; answers the records that stand for them.
    /// ObjectReplacedException when they are no longer stored.
    std::vector<PartInfo> reusePart(const std::vector<PartInfo>& run);

    /// Run the queue until it is empty and no other thread runs a task of it. Every failure is thrown.
    void joinUploads();

    /// Run what is queued, which without concurrent callers is what failed before. Failures as in asyncUploadPart.
    void rerunFailedUploads();

    /// The same, and run tasks until no more are left than the pool has threads.
    void makeRoom();

    /// Complete the upload with these parts, in order and with their tags, over what is expected; answers the version
    /// that was stored. Does nothing when no upload was started. When it fails the upload is left for cancel.
    std::string complete(const std::vector<PartInfo>& parts, const ExpectedObject& expected);

    /// Give the upload up, with all tasks: those that run are waited for, as long as the client takes. Does nothing
    /// when none was started. It is forgotten even if the client fails.
    void cancel();

    /// Set the tag that the upload will be started with, until a part is sent. A completed upload leaves none: how the
    /// store names the parts now is not known.
    void setLastTag(std::string tag);

    /// Whether an upload was started and has not ended, or a task is queued or runs.
    bool isActive() const;

    /// Whether the upload was given a part of that index or a later one, or a task of one runs.
    bool reachesPast(std::uint64_t index) const;

    std::size_t transferOne() noexcept override;

private:
    struct Task {
        std::uint64_t index;
        std::unique_ptr<PartTransfer> part;
        // Of whoever queued it: interrupts that reach him reach it.
        bool isMainContext;
        std::shared_ptr<const foundation::InterruptSource> interrupts;
    };
    using Tasks = std::list<Task>;  // nodes change lists without failing
    class RunningTask;

    // Whether the failure of a part that was changed meanwhile is thrown.
    enum class ChangedParts { MayFail, MustNotFail };

    void enqueueAndRun(std::uint64_t index, std::unique_ptr<PartTransfer> part);
    void runQueue(ChangedParts changedParts, std::size_t mostLeft);
    void requestThreads(std::size_t count) noexcept;
    std::size_t takeDeclined() noexcept;
    void waitForTasks();

    // Tasks that may be queued or run before a caller works: enough to keep the pool at work while he does.
    std::size_t mostLeft() const noexcept { return 2 * m_poolThreads; }

    std::string acquireUploadId(std::uint64_t end);

    Tasks::iterator findQueued(std::uint64_t index) CLOUDPROVIDER_REQUIRES(m_mutex);
    Tasks::iterator findRunnable() CLOUDPROVIDER_REQUIRES(m_mutex);

    const std::shared_ptr<OpenFileContext> m_context;
    const std::weak_ptr<TransferPool> m_pool;  // weak: the last owner of this may be one of its threads
    const std::size_t m_poolThreads;
    const std::size_t m_mostPooled;  // tasks that the pool runs at once

    // Held while the client starts and completes the upload, so that neither happens twice; not while parts are sent
    // or copied. No other mutex is taken under it.
    mutable foundation::Mutex m_mutex;
    foundation::ConditionVariable m_taskEnded;
    bool m_uploadStarted CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_end CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;  // past the last part that the upload was given
    std::string m_uploadId CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::string m_lastTag CLOUDPROVIDER_GUARDED_BY(m_mutex);
    Tasks m_queue CLOUDPROVIDER_GUARDED_BY(m_mutex);  // one task a part at most
    // Indices of the parts whose tasks run now, and how many of those the pool runs.
    std::set<std::uint64_t> m_runningParts CLOUDPROVIDER_GUARDED_BY(m_mutex);
    std::size_t m_pooled CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    // Threads of the pool that found nothing that could be run yet.
    std::size_t m_declined CLOUDPROVIDER_GUARDED_BY(m_mutex) = 0;
    bool m_hasFailed CLOUDPROVIDER_GUARDED_BY(m_mutex) = false;  // a task, which nobody has tried again since
};

}  // namespace storage::cloudprovider
