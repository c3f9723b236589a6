// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/OpenFileContext.hpp"
#include "openfile/DownloadedPartCache.hpp"
#include "openfile/OpenPartBuffer.hpp"
#include "openfile/OpenPartDevice.hpp"
#include "openfile/ReadAhead.hpp"
#include "openfile/StreamRegister.hpp"
#include "openfile/WriteBack.hpp"
#include "upload/MultipartUploadManager.hpp"
#include "upload/PartSizes.hpp"

#include <foundation/threads/Mutex.hpp>
#include <foundation/threads/SharedMutex.hpp>
#include <storage/cloudprovider/PartInfo.hpp>

#include <boost/thread/shared_mutex.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <shared_mutex>
#include <vector>

namespace storage::cloudprovider {

/// The parts of one open object: finds, makes, caches and evicts them, has changed ones sent, and writes the
/// object back when its last stream goes.
///
/// All streams of the object share one manager and keep it alive. Bytes live in OpenPartBuffer, sending in
/// MultipartUploadManager, storing in WriteBack. See the source for what holds when.
/// Errors   what client, buffers and upload throw; ObjectReplacedException when somebody else replaced the object,
///          which retires the manager.
/// Threads  any; see the lock order in docs/architecture.md.
class OpenPartManager {
public:
    /// An empty file with one NEW part. pool: the threads that may transfer for it; empty: none.
    explicit OpenPartManager(std::shared_ptr<OpenFileContext> context, std::shared_ptr<TransferPool> pool = nullptr);
    OpenPartManager(const OpenPartManager&) = delete;
    OpenPartManager& operator=(const OpenPartManager&) = delete;

    /// Cancels an upload that was not completed.
    ~OpenPartManager();

    /// Take the stored object's parts instead; an absent object is an empty file. Tells whether there is one. Call
    /// before the first stream.
    ///
    /// Values   start: whether a small object's bytes, which a reader is about to ask for, come along where the store
    ///          can send both at once.
    /// Errors   ResourceNotFoundException when the object is absent and requirePresent is set; UnknownErrorException
    ///          when the client describes parts that do not follow each other from 0 on.
    enum class Start : std::uint8_t { Leave, Fetch };
    bool initPreserveExisting(bool requirePresent, Start start = Start::Leave);

    /// What to do in the step in which the manager retires: from then on it takes no further streams. Must not throw,
    /// nor call back. Call before the first stream.
    void onRetired(std::function<void()> action);

    /// Count a stream. Waits while the object is written back, for nothing else. False: the manager has retired, and
    /// the object has to be looked up again.
    bool registerByteStream();

    /// Take a stream back, which changed something last at that point, or never; the last one writes the object back.
    /// Tells whether it did, so that everything is stored.
    bool unregisterByteStream(std::optional<ChangePoint> lastChange);

    /// Arrange that the only stream's end does not write the object back, and retire. Tells whether that can be: not
    /// while the object has other streams, nor with changes of streams that closed and count on them.
    bool abandonChanges();

    /// Write the object back now, with all that was changed before. Does nothing once the file is detached.
    void storeChanges();

    /// Give the file that many bytes: cut it off there, or add zeros. Tells whether it had another size. Waits for a
    /// write-back, and for fetches of parts that go, which are INVALID from then on. Never fetches itself. When it
    /// fails nothing has changed.
    ///
    /// Errors   UnsupportedOperationException when the store takes no such file; what the buffers throw.
    bool resize(std::uint64_t size);

    /// Keep the file from being resized while bytes are put into an open part, unless that is INVALID already. Open and
    /// close no part meanwhile.
    std::shared_lock<std::shared_mutex> holdSize();

    /// Leave the object to others: retire, give the upload up, and store nothing more. Waits for a write-back and for
    /// what is being sent. From then on nothing local is given up; fetching fails with ResourceNotFoundException unless
    /// the store is known to have the file's version still.
    void detach();

    /// The point to note for a change that has been made.
    ChangePoint changePoint() const noexcept;

    std::uint64_t getFileSize() const;

    /// UnsupportedOperationException when the store takes no object that has so many bytes at that offset.
    void checkRoomFor(std::uint64_t fileOffset, std::uint64_t count) const;

    /// Index of the part that holds an offset. Offsets past the table belong to parts of the context's part
    /// size that are yet to be made.
    std::uint64_t findPartIndex(std::uint64_t fileOffset) const;

    /// Open the part that holds an offset. With createIfNonExistent the file grows as far as that needs, or not at all:
    /// a file of more parts or bytes than the store takes is refused (UnsupportedOperationException), and so is a new
    /// part without room for its bytes. Without it the answer is empty at and past the end.
    std::unique_ptr<OpenPartDevice> openPart(std::uint64_t fileOffset, bool createIfNonExistent);

    /// The same at the end of the file, wherever that is by then.
    std::unique_ptr<OpenPartDevice> openEnd();

    /// Give a device back. The last one of a part decides its fate: a changed part is sent if the file has
    /// several, an unchanged one goes to the cache, one that is INVALID goes.
    void closePart(std::unique_ptr<OpenPartDevice> device);

    /// The same for parts that were kept open without a device.
    void closePart(OpenPartHold hold);

    /// What fetches ahead for a stream; empty when nothing is to be.
    std::shared_ptr<ReadAhead> makeReadAhead() const;

    /// The unchanged ones among the next parts after one, as many as are fetched ahead.
    std::vector<std::shared_ptr<OpenPartBuffer>> partsAhead(const OpenPartBuffer& part) const;

    /// Try again what failed to be sent, and report it if it still fails.
    void rerunFailedUploads();

private:
    using Part = std::shared_ptr<OpenPartBuffer>;

    // The table from a part on that the file loses, and what takes that one's place: empty when nothing does.
    struct Cut {
        std::vector<Part> removed;
        Part replacement;
        PartSizes newParts;
    };

    std::vector<Part> cutOff(std::uint64_t size) CLOUDPROVIDER_REQUIRES(m_streamGate);
    Cut prepareCut(const std::vector<Part>& parts, std::uint64_t size) const CLOUDPROVIDER_REQUIRES(m_streamGate);
    void growTo(std::uint64_t size) CLOUDPROVIDER_REQUIRES(m_streamGate);
    void flushParts(ObjectWriter::Bytes bytes);
    void keepInCache(const Part& part) noexcept;
    bool isSinglePartFile() const;

    // The action has the locks that its caller has.
    template <typename Action>
    auto retiringWhenReplaced(Action action) CLOUDPROVIDER_LOCKS_NOT_ANALYSED;
    template <typename Action>
    auto afterSettling(Action action) CLOUDPROVIDER_LOCKS_NOT_ANALYSED;

    std::unique_ptr<OpenPartDevice> openPartGated(std::uint64_t fileOffset, bool createIfNonExistent)
        CLOUDPROVIDER_REQUIRES_SHARED(m_streamGate);

    static std::unique_ptr<OpenPartDevice> openDevice(const Part& part, std::uint64_t fileOffset);
    std::unique_ptr<OpenPartDevice> openNewPart(std::uint64_t partIndex, std::uint64_t fileOffset)
        CLOUDPROVIDER_REQUIRES_SHARED(m_streamGate);
    std::vector<Part> makePartsBehind(const Part& last, std::uint64_t partIndex) const;
    void appendLocked(const std::vector<Part>& newParts) CLOUDPROVIDER_REQUIRES(m_partsMutex);
    void addNewPartTo(std::vector<Part>& parts, const Part& previous) const;

    const std::shared_ptr<OpenFileContext> m_context;
    const std::shared_ptr<TransferPool> m_pool;  // kept alive here: no transfer owns a part manager
    const std::shared_ptr<MultipartUploadManager> m_uploadManager;
    DownloadedPartCache m_cache;
    StreamRegister m_streams;

    // The stream gate: shared while a part is opened, closed or sent, exclusive for resizing and the write-back, which
    // does I/O under it on purpose. First in the lock order.
    foundation::SharedMutex<boost::shared_mutex> m_streamGate;
    WriteBack m_writeBack CLOUDPROVIDER_GUARDED_BY(m_streamGate);
    WriteBack::Cut m_cut CLOUDPROVIDER_GUARDED_BY(m_streamGate) = WriteBack::Cut::No;
    bool m_isDetached CLOUDPROVIDER_GUARDED_BY(m_streamGate) = false;

    // Shared while bytes are put into a part, exclusive for resizing. Next in the lock order. Guards no member.
    std::shared_mutex m_sizeGate;

    // For the table, not the parts. Behind both gates in the lock order, before one part's mutex.
    mutable foundation::Mutex m_partsMutex;
    std::vector<Part> m_parts CLOUDPROVIDER_GUARDED_BY(m_partsMutex);  // by index, never empty; none is INVALID
    PartSizes m_newParts;  // changes under both this and m_streamGate, exclusive; either of them is enough to read it
};

}  // namespace storage::cloudprovider
