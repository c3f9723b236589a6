// SPDX-License-Identifier: Apache-2.0
#include "OpenPartManager.hpp"

#include "Trace.hpp"
#include "checkedLayout.hpp"
#include "translateException.hpp"
#include "tuning.hpp"

#include <storage/cloudprovider/CloudException.hpp>

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>
#include <boost/thread/lock_types.hpp>

#include <algorithm>
#include <utility>

namespace storage::cloudprovider {

using foundation::storage::provider::ExceptionContext;

namespace {

using SharedGate = boost::shared_lock<boost::shared_mutex>;
using ExclusiveGate = boost::unique_lock<boost::shared_mutex>;

// A part as the upload sees it: opening counts as one more opener, so the bytes stay mapped during the
// client's call even if the streams that have the part open close it meanwhile.
class UploadedBytes : public Buffer {
public:
    explicit UploadedBytes(std::shared_ptr<OpenPartBuffer> part) : m_part(std::move(part)) {}
    ~UploadedBytes() override = default;

    std::uint64_t size() const override { return m_part->size(); }
    void open() override { m_hold.emplace(m_part); }
    bool isOpen() const override { return m_hold.has_value(); }
    char* data() override { return m_part->data(); }
    const char* data() const override { return std::as_const(*m_part).data(); }
    void close() override { m_hold.reset(); }

private:
    const std::shared_ptr<OpenPartBuffer> m_part;
    std::optional<OpenPartHold> m_hold;
};

}  // namespace

OpenPartManager::OpenPartManager(std::shared_ptr<OpenFileContext> context)
    : m_context(std::move(context)),
      m_uploadManager(std::make_unique<MultipartUploadManager>(m_context)),
      m_cache(m_context->downloadedPartCacheSize) {
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

void OpenPartManager::initPreserveExisting(bool requirePresent) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" requirePresent=", requirePresent);
    auto layout = describeExistingParts(requirePresent);
    m_uploadManager->setLastTag(layout.front().Tag);

    std::vector<Part> parts;
    parts.reserve(layout.size());
    for (auto& info : layout) {
        const bool isLast = parts.size() + 1 == layout.size();
        parts.push_back(std::make_shared<OpenPartBuffer>(std::move(info), LocalDataVersion::CLOUD, isLast, m_context));
    }
    parts.front()->setIsOnlyPart(parts.size() == 1);
    const std::lock_guard lock(m_partsMutex);
    m_parts = std::move(parts);
}

void OpenPartManager::registerByteStream() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const ExclusiveGate gate(m_streamGate);
    if (m_isAbandoned) {
        throw ResourceInUseException();
    }
    ++m_streamCount;
}

void OpenPartManager::unregisterByteStream(bool hasWritten) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const ExclusiveGate gate(m_streamGate);
    --m_streamCount;
    if (m_streamCount != 0) {
        m_hasChangesOfClosedStreams = m_hasChangesOfClosedStreams || hasWritten;
    } else if (!m_isAbandoned) {
        m_hasChangesOfClosedStreams = true;
        flushParts();
        m_hasChangesOfClosedStreams = false;
    }
}

bool OpenPartManager::abandonChanges() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const ExclusiveGate gate(m_streamGate);
    m_isAbandoned = m_streamCount == 1 && !m_hasChangesOfClosedStreams;
    return m_isAbandoned;
}

std::uint64_t OpenPartManager::getFileSize() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_partsMutex);
    return m_parts.back()->end();
}

std::uint64_t OpenPartManager::findPartIndex(std::uint64_t fileOffset) const {
    const std::lock_guard lock(m_partsMutex);
    return findPartIndexLocked(fileOffset);
}

std::unique_ptr<OpenPartDevice> OpenPartManager::openPart(std::uint64_t fileOffset, bool createIfNonExistent) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" fileOffset=", fileOffset, " createIfNonExistent=", createIfNonExistent);
    const SharedGate gate(m_streamGate);
    while (true) {
        std::unique_lock lock(m_partsMutex);
        const auto partIndex = findPartIndexLocked(fileOffset);
        if (!createIfNonExistent && fileOffset >= m_parts.back()->end()) {
            return nullptr;
        }
        const Part part = partIndex < m_parts.size() ? m_parts[partIndex] : nullptr;
        lock.unlock();
        if (auto hold = part ? std::optional<OpenPartHold>(part) : openNewPart(partIndex)) {
            m_cache.remove(hold->part());
            const auto position = std::min(hold->part()->capacity(), fileOffset - hold->part()->offset());
            return std::make_unique<OpenPartDevice>(OpenPartDevice{position, std::move(*hold)});
        }
    }
}

void OpenPartManager::closePart(std::unique_ptr<OpenPartDevice> device) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const SharedGate gate(m_streamGate);
    const Part part = device->hold.part();
    if (!device->hold.close()) {
        return;  // another stream has it open and will decide, or an upload, and then the write-back sends it
    }
    if (part->localDataVersion() == LocalDataVersion::NEW) {
        scheduleUpload(part);
    } else {
        keepInCache(part);
    }
}

void OpenPartManager::rerunFailedUploads() {
    const SharedGate gate(m_streamGate);
    m_uploadManager->rerunFailedUploads();
}

// Runs under the exclusive gate: nobody opens, closes or sends a part meanwhile.
void OpenPartManager::flushParts() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_lock lock(m_partsMutex);
    const auto parts = m_parts;
    lock.unlock();
    if (parts.size() == 1) {
        flushSinglePartFile(parts.front());
    } else {
        flushMultiPartFile(parts);
    }
    for (const auto& part : parts) {
        if (part->hasLocalBytes()) {
            keepInCache(part);
        }
    }
}

void OpenPartManager::flushSinglePartFile(const Part& part) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (!part->openIfModified()) {
        return;
    }
    const auto hold = OpenPartHold::adopt(part);
    if (const auto record = part->markUploading()) {
        try {
            boost::iostreams::stream<boost::iostreams::array_source> stream(std::as_const(*part).data(),
                                                                            static_cast<std::size_t>(record->Size));
            m_context->client->putObject(m_context->key, stream, record->Size);
        } catch (...) {
            part->markModified();
            throw;
        }
        part->markUploaded();
    }
}

void OpenPartManager::flushMultiPartFile(const std::vector<Part>& parts) {
    m_uploadManager->rerunFailedUploads();
    for (const auto& part : parts) {
        scheduleUpload(part);
    }
    if (!m_uploadManager->isActive()) {
        return;  // nothing was changed
    }
    for (const auto& part : parts) {
        if (part->localDataVersion() == LocalDataVersion::CLOUD && part->size() != 0) {
            m_uploadManager->asyncReusePart(part->info(),
                                            [part](const std::string& tag) { part->recordUploadTag(tag); });
        }
    }
    m_uploadManager->joinUploads();

    std::vector<PartInfo> records;
    records.reserve(parts.size());
    for (const auto& part : parts) {
        if (part->size() == 0) {
            continue;  // stores refuse parts without bytes
        }
        const auto record = part->uploadedRecord();
        if (!record) {
            throw UnknownErrorException(ExceptionContext("a part of " + m_context->key + " was not sent"));
        }
        records.push_back(*record);
    }
    m_uploadManager->complete(records);
    for (const auto& part : parts) {
        part->markUploaded();
    }
}

// Does nothing for a part that is not NEW, and for the only part of a file: that one is put as a whole at the end.
void OpenPartManager::scheduleUpload(const Part& part) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (isSinglePartFile() || part->size() == 0) {
        return;
    }
    auto bytes = std::make_shared<UploadedBytes>(part);  // before the state changes: it may fail
    if (auto record = part->markUploading()) {
        m_uploadManager->asyncUploadPart(std::move(*record), std::move(bytes),
                                         [part](const std::string& tag) { part->recordUploadTag(tag); });
    }
}

void OpenPartManager::keepInCache(const Part& part) {
    for (const auto& evicted : m_cache.add(part)) {
        evicted->discardIfUnmodified();
    }
}

bool OpenPartManager::isSinglePartFile() const {
    const std::lock_guard lock(m_partsMutex);
    return m_parts.size() == 1;
}

std::vector<PartInfo> OpenPartManager::describeExistingParts(bool requirePresent) const {
    auto layout = m_context->client->getObjectParts(m_context->key);
    if (!layout.empty()) {
        return checkedLayout(std::move(layout), m_context->key);
    }
    const auto info = m_context->client->getObjectInfo(m_context->key);
    if (!info && requirePresent) {
        throw ResourceNotFoundException();
    }
    return {PartInfo{0, 0, info ? info->Size : 0, {}}};
}

std::uint64_t OpenPartManager::findPartIndexLocked(std::uint64_t fileOffset) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" fileOffset=", fileOffset);
    const auto part =
        std::upper_bound(m_parts.begin(), m_parts.end(), fileOffset,
                         [](std::uint64_t offset, const Part& candidate) { return offset < candidate->capacityEnd(); });
    std::uint64_t partIndex = static_cast<std::uint64_t>(part - m_parts.begin());
    if (part == m_parts.end()) {
        partIndex += (fileOffset - m_parts.back()->capacityEnd()) / m_context->partSize;
    }
    CLOUDPROVIDER_TRACE_ARGUMENTS("partIndex", '=', partIndex);
    return partIndex;
}

// Opens the part before it becomes part of the file: when there is no room for its buffer the file has not grown. Empty
// when another thread made the file grow meanwhile.
std::optional<OpenPartHold> OpenPartManager::openNewPart(std::uint64_t partIndex) {
    if (partIndex >= kMaxPartCount) {
        throw UnsupportedOperationException(ExceptionContext(m_context->key + " would need more than " +
                                                             std::to_string(kMaxPartCount) + " parts of " +
                                                             std::to_string(m_context->partSize) + " bytes"));
    }
    std::unique_lock lock(m_partsMutex);
    const auto formerCount = m_parts.size();
    const Part last = m_parts.back();
    lock.unlock();
    if (partIndex < formerCount) {
        return std::nullopt;
    }
    std::vector<Part> newParts;
    while (formerCount + newParts.size() <= partIndex) {
        if (!newParts.empty()) {
            newParts.back()->increaseSizeToMax();
        }
        addNewPartTo(newParts, newParts.empty() ? last : newParts.back());
    }
    OpenPartHold hold(newParts.back());

    lock.lock();
    if (m_parts.size() != formerCount) {
        return std::nullopt;
    }
    m_parts.insert(m_parts.end(), newParts.begin(), newParts.end());  // all or, for want of memory, none
    m_parts.front()->setIsOnlyPart(false);
    last->increaseSizeToMax();
    for (const auto& part : newParts) {
        CLOUDPROVIDER_TRACE_ARGUMENTS("Adding new part with index ", part->index());
    }
    return hold;
}

// Behind the previous part's capacity, to which that part is filled before the new one comes into the file.
void OpenPartManager::addNewPartTo(std::vector<Part>& parts, const Part& previous) const {
    const PartInfo info{previous ? previous->index() + 1 : 0, previous ? previous->capacityEnd() : 0, 0, {}};
    parts.push_back(std::make_shared<OpenPartBuffer>(info, LocalDataVersion::NEW, true, m_context));
}

}  // namespace storage::cloudprovider
