// SPDX-License-Identifier: Apache-2.0
#include "openfile/OpenPartManager.hpp"

#include "client/checkedLayout.hpp"
#include "context/ObjectReplacedException.hpp"
#include "openfile/PartTransfers.hpp"
#include "support/Trace.hpp"
#include "support/interrupt.hpp"
#include "support/saturatingAdd.hpp"
#include "support/translateException.hpp"
#include "support/tuning.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <algorithm>
#include <mutex>
#include <utility>

namespace storage::cloudprovider {

// What becomes of a part:
//
//   openPart --> in the table? --no, createIfNonExistent--> made, opened --> the table
//                     '--yes--> opened: local now --> the stream copies bytes --> closePart
//
//   closePart, by the last one that has it open:
//     NEW, and the file has several parts ----------> queued and sent; the bytes stay until the file is stored
//     NEW, and the file has no other ---------------> stays; the write-back puts the file as a whole
//     zeros that nobody wrote ----------------------> given up
//     CLOUD, SCHEDULED_UPLOAD ----------------------> the cache --evicted--> given up if it is CLOUD
//
//   the last stream goes, storeChanges --> WriteBack, over a copy of the table --> the cache
//   resize -----------------------------> parts leave the table, INVALID; the last one is another part now
//
// (1) The table is by index and without gaps; it is never empty, and no part in it is INVALID.
// (2) Only the last part may have fewer bytes than its capacity: it is filled before another one follows it.
// (3) The file grows by a part only when that has room for its bytes, or by none.
// (4) With the stream gate held exclusively no part is opened, closed or sent, so a copy of the table is the table.
// (5) The last one that has a changed part open sends it, be that a stream or an upload; what none of them sent, the
//     write-back does. No change is forgotten between them.
// (6) m_cut is set from a cut until a write-back has stored what is left.
// (7) A detached file sends nothing, and gives up nothing that it could not have again.
// (8) The manager retires in the step in which it meets another version, before its caller learns of it.

namespace {

using SharedGate = foundation::SharedLock<boost::shared_mutex>;
using ExclusiveGate = foundation::ExclusiveLock<boost::shared_mutex>;

// SharedGate for who reads: he may be interrupted while a store that is under way has the gate.
class CLOUDPROVIDER_SCOPED_CAPABILITY InterruptibleGate {
public:
    explicit InterruptibleGate(foundation::SharedMutex<boost::shared_mutex>& gate) CLOUDPROVIDER_ACQUIRE_SHARED(gate)
        : m_gate(gate) {
        if (!foundation::InterruptScope::current()) {
            m_gate.lockShared();
            return;
        }
        while (!m_gate.tryLockSharedFor(boost::chrono::milliseconds(kInterruptInterval.count()))) {
            foundation::InterruptScope::throwIfRequested();
        }
    }
    InterruptibleGate(const InterruptibleGate&) = delete;
    InterruptibleGate& operator=(const InterruptibleGate&) = delete;
    ~InterruptibleGate() CLOUDPROVIDER_RELEASE() { m_gate.unlockShared(); }

private:
    foundation::SharedMutex<boost::shared_mutex>& m_gate;
};

// Ends a write-back for those who wait for it, whatever became of it.
class WriteBackEnd {
public:
    explicit WriteBackEnd(StreamRegister& streams) : m_streams(streams) {}
    WriteBackEnd(const WriteBackEnd&) = delete;
    WriteBackEnd& operator=(const WriteBackEnd&) = delete;
    ~WriteBackEnd() { m_streams.endWriteBack(); }

private:
    StreamRegister& m_streams;
};

}  // namespace

// (8). Openers that come later find the object as it is now; the streams that are open can store nothing over it.
template <typename Action>
auto OpenPartManager::retiringWhenReplaced(Action action) {
    try {
        return action();
    } catch (const ObjectReplacedException&) {
        m_streams.retire();
        throw;
    }
}

// Another version than the one that was opened may be the file's own: of a store of which nobody told how it ended.
template <typename Action>
auto OpenPartManager::afterSettling(Action action) {
    const auto version = m_context->version.get();
    try {
        return action();
    } catch (const ObjectReplacedException&) {
        traceCaughtException();
        if (!m_writeBack.settle() && m_context->version.get() == version) {
            throw;
        }
    }
    return action();
}

OpenPartManager::OpenPartManager(std::shared_ptr<OpenFileContext> context, std::shared_ptr<TransferPool> pool)
    : m_context(std::move(context)),
      m_pool(std::move(pool)),
      m_uploadManager(std::make_shared<MultipartUploadManager>(m_context, m_pool)),
      m_cache(m_context->downloadedPartCacheSize),
      m_writeBack(m_context, m_uploadManager),
      m_newParts(m_context->partSize, m_context->client->limits()) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    addNewPartTo(m_parts, nullptr);
    m_parts.front()->setIsOnlyPart(true);
}

OpenPartManager::~OpenPartManager() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    try {
        m_uploadManager->cancel();
    } catch (...) {
        traceCaughtException();
    }
}

bool OpenPartManager::initPreserveExisting(bool requirePresent, Start start) {
    CLOUDPROVIDER_TRACE_FUNCTION(" requirePresent=", requirePresent);
    std::string bytes;
    auto& client = *m_context->client;
    auto stored = start == Start::Fetch ? client.describeWithStart(m_context->key, kMostStart, bytes)
                                        : client.describeObject(m_context->key);
    if (!stored && requirePresent) {
        throw ResourceNotFoundException();
    }
    m_context->version.editOf(stored ? std::optional(std::move(stored->Version)) : std::nullopt);
    const bool isDivided = stored && !stored->Parts.empty();
    auto layout = checkedLayout(isDivided ? std::move(stored->Parts) : std::vector<PartInfo>(1), m_context->key);
    m_uploadManager->setLastTag(layout.front().Tag);

    std::vector<Part> parts;
    parts.reserve(layout.size());
    for (const auto& info : layout) {
        const bool isLast = parts.size() + 1 == layout.size();
        const auto capacity = isLast ? m_newParts.grownCapacityOf(info.Size, info.Offset) : info.Size;
        parts.push_back(std::make_shared<OpenPartBuffer>(info, LocalDataVersion::CLOUD, capacity, m_context));
    }
    m_newParts = PartSizes(m_context->partSize, m_context->client->limits(), parts.size());
    parts.front()->setIsOnlyPart(parts.size() == 1);
    if (parts.size() == 1 && !bytes.empty() && bytes.size() == parts.front()->end()) {
        parts.front()->fill(bytes);
        keepInCache(parts.front());
    }
    const foundation::MutexLock lock(m_partsMutex);
    m_parts = std::move(parts);
    return stored.has_value();
}

void OpenPartManager::onRetired(std::function<void()> action) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    m_streams.onRetired(std::move(action));
}

bool OpenPartManager::registerByteStream() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_streams.add();
}

bool OpenPartManager::unregisterByteStream(std::optional<ChangePoint> lastChange) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (!m_streams.remove(lastChange)) {
        return false;
    }
    const WriteBackEnd end(m_streams);
    flushParts(ObjectWriter::Bytes::Stay);
    return true;
}

bool OpenPartManager::abandonChanges() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_streams.abandon();
}

void OpenPartManager::storeChanges() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    flushParts(ObjectWriter::Bytes::MayChange);
}

bool OpenPartManager::resize(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION(" size=", size);
    const ExclusiveGate gate(m_streamGate);
    std::vector<Part> removed;
    bool isChanged = false;
    {
        const std::lock_guard writers(m_sizeGate);
        const auto former = getFileSize();
        isChanged = size != former;
        if (size < former) {
            removed = cutOff(size);
        } else if (size > former) {
            growTo(size);
        }
    }
    for (const auto& part : removed) {
        m_cache.remove(part);
        part->waitForLoading();  // a store that has got the shorter object is not asked for what lay past its end
    }
    return isChanged;
}

std::shared_lock<std::shared_mutex> OpenPartManager::holdSize() {
    return std::shared_lock(m_sizeGate);
}

void OpenPartManager::detach() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const ExclusiveGate gate(m_streamGate);
    if (m_isDetached) {
        return;
    }
    m_isDetached = true;  // (7)
    m_context->version.detach();
    m_streams.detach();
    m_writeBack.cancelUpload();
    const foundation::MutexLock lock(m_partsMutex);
    for (const auto& part : m_parts) {
        part->forgetUpload();
    }
}

ChangePoint OpenPartManager::changePoint() const noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_streams.changePoint();
}

std::uint64_t OpenPartManager::getFileSize() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_partsMutex);
    return m_parts.back()->end();
}

void OpenPartManager::checkRoomFor(std::uint64_t fileOffset, std::uint64_t count) const {
    const foundation::MutexLock lock(m_partsMutex);
    m_newParts.checkFileSize(saturatingAdd(fileOffset, count), m_context->key);
}

std::uint64_t OpenPartManager::findPartIndex(std::uint64_t fileOffset) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" fileOffset=", fileOffset);
    foundation::MutexLock lock(m_partsMutex);
    const auto part =
        std::upper_bound(m_parts.begin(), m_parts.end(), fileOffset,
                         [](std::uint64_t offset, const Part& candidate) { return offset < candidate->capacityEnd(); });
    std::uint64_t partIndex = static_cast<std::uint64_t>(part - m_parts.begin());
    if (part == m_parts.end()) {
        partIndex = m_newParts.indexBehind(partIndex, fileOffset - m_parts.back()->capacityEnd());
    }
    lock.unlock();
    CLOUDPROVIDER_TRACE_VALUES("partIndex", '=', partIndex);
    return partIndex;
}

std::unique_ptr<OpenPartDevice> OpenPartManager::openPart(std::uint64_t fileOffset, bool createIfNonExistent) {
    CLOUDPROVIDER_TRACE_FUNCTION(" fileOffset=", fileOffset, " createIfNonExistent=", createIfNonExistent);
    const InterruptibleGate gate(m_streamGate);
    return openPartGated(fileOffset, createIfNonExistent);
}

std::unique_ptr<OpenPartDevice> OpenPartManager::openEnd() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const SharedGate gate(m_streamGate);
    return openPartGated(getFileSize(), true);
}

// The index of the part that an offset lies in does not change meanwhile, also when the file grows.
std::unique_ptr<OpenPartDevice> OpenPartManager::openPartGated(std::uint64_t fileOffset, bool createIfNonExistent) {
    const auto partIndex = findPartIndex(fileOffset);
    std::unique_ptr<OpenPartDevice> device;
    while (!device) {
        foundation::MutexLock lock(m_partsMutex);
        if (!createIfNonExistent && fileOffset >= m_parts.back()->end()) {
            return nullptr;
        }
        const Part part = partIndex < m_parts.size() ? m_parts[partIndex] : nullptr;
        lock.unlock();
        if (part) {
            device = retiringWhenReplaced([&] { return afterSettling([&] { return openDevice(part, fileOffset); }); });
        } else {
            device = openNewPart(partIndex, fileOffset);
        }
    }
    m_cache.remove(device->hold.part());
    return device;
}

void OpenPartManager::closePart(std::unique_ptr<OpenPartDevice> device) {
    closePart(std::move(device->hold));
}

void OpenPartManager::closePart(OpenPartHold hold) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const SharedGate gate(m_streamGate);
    const Part part = hold.part();
    if (!hold.close()) {
        return;  // (5): another stream has it open and will decide, or an upload, and then the write-back sends it
    }
    const auto version = part->localDataVersion();
    if (version == LocalDataVersion::NEW && !m_isDetached && !isSinglePartFile()) {  // that one is put as a whole
        retiringWhenReplaced([&] { sendPart(*m_uploadManager, part); });
        return;
    }
    part->discardIfBlank();
    const bool mayGo = version == LocalDataVersion::CLOUD || version == LocalDataVersion::SCHEDULED_UPLOAD;
    if (mayGo && !m_isDetached && part->hasLocalBytes()) {
        keepInCache(part);
    }
}

std::shared_ptr<ReadAhead> OpenPartManager::makeReadAhead() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_pool && m_context->options.readAheadParts != 0 ? std::make_shared<ReadAhead>(m_pool) : nullptr;
}

std::vector<std::shared_ptr<OpenPartBuffer>> OpenPartManager::partsAhead(const OpenPartBuffer& part) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const auto most =
        std::min<std::size_t>(m_context->options.readAheadParts, m_context->client->limits().UsefulDownloads);
    const auto first = part.index() + 1;
    std::vector<Part> ahead;
    const foundation::MutexLock lock(m_partsMutex);
    for (auto index = first; index < m_parts.size() && index < first + most; ++index) {
        if (m_parts[index]->localDataVersion() == LocalDataVersion::CLOUD && m_parts[index]->size() != 0) {
            ahead.push_back(m_parts[index]);
        }
    }
    return ahead;
}

void OpenPartManager::rerunFailedUploads() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const SharedGate gate(m_streamGate);
    retiringWhenReplaced([&] { m_uploadManager->rerunFailedUploads(); });
}

// Under the size gate, too: nobody opens or closes a part, nor puts bytes into one. What may fail comes first.
std::vector<std::shared_ptr<OpenPartBuffer>> OpenPartManager::cutOff(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    foundation::MutexLock lock(m_partsMutex);
    const auto parts = m_parts;
    lock.unlock();
    auto cut = prepareCut(parts, size);
    for (const auto& part : cut.removed) {
        part->invalidate();  // (1): nobody opens a part before they have left the table
    }
    lock.lock();
    m_parts.resize(m_parts.size() - cut.removed.size());
    if (cut.replacement) {
        m_parts.push_back(std::move(cut.replacement));  // there is room
    }
    m_newParts = cut.newParts;
    m_cut = WriteBack::Cut::Yes;  // (6)
    return std::move(cut.removed);
}

// A part of which only the beginning is left is replaced, and so is the first one of a file without bytes, which is
// divided like a new one. In the others, nothing changes; those that are added later go on as before the parts that
// went.
OpenPartManager::Cut OpenPartManager::prepareCut(const std::vector<Part>& parts, std::uint64_t size) const {
    const auto first = std::partition_point(parts.begin(), parts.end(),
                                            [size](const Part& part) { return part->end() <= size && size != 0; });
    Cut cut{{first, parts.end()}, nullptr, m_newParts};
    const auto& broken = **first;
    const bool isReplaced = size == 0 || broken.offset() < size;
    const auto count = static_cast<std::uint64_t>(first - parts.begin()) + (isReplaced && size != 0 ? 1 : 0);
    if (count < m_newParts.firstIndex()) {
        cut.newParts = PartSizes(m_context->partSize, m_context->client->limits(), count);
    }
    if (isReplaced) {
        const auto left = size - broken.offset();
        const auto capacity = size == 0
                                  ? cut.newParts.capacityOf(0, 0, m_context->key)
                                  : std::max(broken.capacity(), cut.newParts.grownCapacityOf(left, broken.offset()));
        cut.replacement = broken.makeShortened(left, capacity);
    }
    return cut;
}

// As above. Parts without a byte of their own get no bytes here until they are read, written or sent.
void OpenPartManager::growTo(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const auto partIndex = findPartIndex(size - 1);
    foundation::MutexLock lock(m_partsMutex);
    const Part last = m_parts.back();
    lock.unlock();
    if (partIndex == last->index()) {
        last->increaseSize(size - last->offset(), 0);
        return;
    }
    m_newParts.capacityOf(partIndex, size - 1, m_context->key);  // before the many parts of a long gap are made
    const auto newParts = makePartsBehind(last, partIndex);
    newParts.back()->increaseSize(size - newParts.back()->offset(), 0);
    lock.lock();
    appendLocked(newParts);
}

// (4). Streams that have a part open may still write into it, and make the last one grow: what they write is stored
// now, or in part, or with the next write-back, which finds the part NEW.
void OpenPartManager::flushParts(ObjectWriter::Bytes bytes) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const ExclusiveGate gate(m_streamGate);
    if (m_isDetached) {
        return;
    }
    const auto begun = m_streams.beginStore();
    foundation::MutexLock lock(m_partsMutex);
    const auto parts = m_parts;
    lock.unlock();
    retiringWhenReplaced([&]() CLOUDPROVIDER_REQUIRES(m_streamGate) { m_writeBack.run(parts, m_cut, bytes); });
    m_cut = WriteBack::Cut::No;
    m_streams.endStore(begun);
    for (const auto& part : parts) {
        if (part->hasLocalBytes() && !part->isOpen()) {
            keepInCache(part);
        }
    }
}

// A part that cannot be remembered is given up as if it had been evicted: it is fetched again when it is needed.
void OpenPartManager::keepInCache(const Part& part) noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    try {
        for (const auto& evicted : m_cache.add(part)) {
            evicted->discardIfUnmodified();
        }
    } catch (...) {
        traceCaughtException();
        part->discardIfUnmodified();
    }
}

bool OpenPartManager::isSinglePartFile() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_partsMutex);
    return m_parts.size() == 1;
}

std::unique_ptr<OpenPartDevice> OpenPartManager::openDevice(const Part& part, std::uint64_t fileOffset) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    OpenPartHold hold(part);
    const auto position = std::min(part->capacity(), fileOffset - part->offset());
    return std::make_unique<OpenPartDevice>(OpenPartDevice{position, std::move(hold)});
}

// (3): opens the part before it becomes part of the file. Empty when another thread made the file grow meanwhile.
std::unique_ptr<OpenPartDevice> OpenPartManager::openNewPart(std::uint64_t partIndex, std::uint64_t fileOffset) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    m_newParts.capacityOf(partIndex, fileOffset, m_context->key);  // before the many parts of a long gap are made
    foundation::MutexLock lock(m_partsMutex);
    const auto formerCount = m_parts.size();
    const Part last = m_parts.back();
    lock.unlock();
    if (partIndex < formerCount) {
        return nullptr;
    }
    const auto newParts = makePartsBehind(last, partIndex);
    auto device = openDevice(newParts.back(), fileOffset);
    device->part().reserve(device->position + 1);

    lock.lock();
    if (m_parts.size() != formerCount) {
        return nullptr;
    }
    appendLocked(newParts);
    return device;
}

// Full ones up to that index, and an empty one there.
std::vector<std::shared_ptr<OpenPartBuffer>> OpenPartManager::makePartsBehind(const Part& last,
                                                                              std::uint64_t partIndex) const {
    std::vector<Part> newParts;
    while (last->index() + newParts.size() < partIndex) {
        if (!newParts.empty()) {
            newParts.back()->increaseSizeToMax();
        }
        addNewPartTo(newParts, newParts.empty() ? last : newParts.back());
    }
    return newParts;
}

// What may fail comes first. Twice the room: filling a vector by exact sizes would copy it each
// time.
void OpenPartManager::appendLocked(const std::vector<Part>& newParts) {
    if (const auto count = m_parts.size() + newParts.size(); count > m_parts.capacity()) {
        m_parts.reserve(std::max(count, 2 * m_parts.size()));
    }
    m_parts.back()->increaseSizeToMax();  // (2)
    m_parts.insert(m_parts.end(), newParts.begin(), newParts.end());
    m_parts.front()->setIsOnlyPart(false);
    for (const auto& part : newParts) {
        CLOUDPROVIDER_TRACE_VALUES("Adding new part with index ", part->index());
    }
}

// Behind the previous part's capacity, to which that part is filled before the new one comes into the file.
void OpenPartManager::addNewPartTo(std::vector<Part>& parts, const Part& previous) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const PartInfo info{previous ? previous->index() + 1 : 0, previous ? previous->capacityEnd() : 0, 0, {}};
    const auto capacity = m_newParts.capacityOf(info.Index, info.Offset, m_context->key);
    parts.push_back(std::make_shared<OpenPartBuffer>(info, LocalDataVersion::NEW, capacity, m_context));
}

}  // namespace storage::cloudprovider
