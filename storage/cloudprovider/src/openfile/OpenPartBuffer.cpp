// SPDX-License-Identifier: Apache-2.0
#include "openfile/OpenPartBuffer.hpp"

#include "context/fetchRange.hpp"
#include "support/Trace.hpp"
#include "support/interrupt.hpp"
#include "support/saturatingAdd.hpp"
#include "support/translateException.hpp"

#include <foundation/services/Files.hpp>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

namespace storage::cloudprovider {

// Where the current bytes of a part live:
//
//   CLOUD --markModified--> NEW --markUploading--> SCHEDULED_UPLOAD --markUploaded--> CLOUD
//                            ^---markModified, failure----'
//   any --invalidate--> INVALID
//
// (1) Only CLOUD bytes may be discarded, and zeros that were never anything else.
// (2) A NEW part is sent again, whatever was sent before. It becomes SCHEDULED_UPLOAD when its bytes are on their way,
//     not when it is queued, and NEW again when they do not arrive.
// (3) A sent part stays SCHEDULED_UPLOAD until the whole upload has completed: before, the stored object has the old
//     bytes, which must be neither fetched nor copied in its place.
// (4) A CLOUD part has exactly m_storedSize bytes. Any other part has at least as many; those that it holds beyond
//     them were written here, or are zeros.
// (5) A local buffer has room for m_size bytes before m_size says so.
// (6) A tag is kept with the number of bytes that it was given for.
// (7) A part never shrinks: where a file is cut off another part takes its place, whose buffer never had the bytes
//     after the cut. So neither a transfer nor a reader that is still busy with the old one can bring them back.

namespace {

// Takes an opener back unless dismissed.
class CountGuard {
public:
    explicit CountGuard(OpenPartBuffer& part) : m_part(&part) {}
    CountGuard(const CountGuard&) = delete;
    CountGuard& operator=(const CountGuard&) = delete;
    ~CountGuard() {
        if (m_part != nullptr) {
            try {
                m_part->close();
            } catch (...) {
                traceCaughtException();
            }
        }
    }

    void dismiss() noexcept { m_part = nullptr; }

private:
    OpenPartBuffer* m_part;
};

}  // namespace

OpenPartBuffer::OpenPartBuffer(const PartInfo& info, LocalDataVersion version, std::uint64_t capacity,
                               std::shared_ptr<OpenFileContext> context)
    : m_index(info.Index),
      m_offset(info.Offset),
      m_capacity(capacity),
      m_context(std::move(context)),
      m_size(info.Size),
      m_localDataVersion(version),
      m_tag(info.Tag),
      m_storedSize(version == LocalDataVersion::CLOUD ? info.Size : 0),
      m_scheduledSize(m_storedSize) {
    CLOUDPROVIDER_TRACE_FUNCTION(" m_info=", info, " m_localDataVersion=", version);
}

OpenPartBuffer::~OpenPartBuffer() = default;

std::uint64_t OpenPartBuffer::index() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_index;
}

std::uint64_t OpenPartBuffer::offset() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_offset;
}

std::uint64_t OpenPartBuffer::capacity() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_capacity;
}

std::uint64_t OpenPartBuffer::capacityEnd() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    return m_offset + m_capacity;
}

void OpenPartBuffer::open() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (!countOpener()) {
        CountGuard guard(*this);
        loadAsFirstOpener();
        guard.dismiss();
    }
}

bool OpenPartBuffer::openIfModified() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const bool hasBuffer = countOpener();
    CountGuard guard(*this);
    if (localDataVersion() != LocalDataVersion::NEW) {
        return false;
    }
    if (!hasBuffer) {
        loadAsFirstOpener();
    }
    guard.dismiss();
    return true;
}

bool OpenPartBuffer::close() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    assert(m_openCount != 0 && "a part is closed as often as it was opened");
    --m_openCount;
    m_condition.notifyAll();
    if (m_openCount != 0) {
        return false;
    }
    if (m_buffer) {
        m_buffer->close();
    }
    return true;
}

bool OpenPartBuffer::isOpen() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    return m_openCount != 0;
}

char* OpenPartBuffer::data() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    return m_buffer ? m_buffer->data() : nullptr;
}

// Untraced: it is most of what a small read does, and doRead is traced.
OpenPartBuffer::View OpenPartBuffer::view() const {
    const foundation::MutexLock lock(m_mutex);
    return {m_buffer ? m_buffer->data() : nullptr, m_size, m_localDataVersion};
}

void OpenPartBuffer::reserve(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    if (m_buffer) {
        m_buffer->reserve(std::min(size, m_capacity));
    }
}

void OpenPartBuffer::fill(std::string_view stored) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    auto buffer = buildOpenBuffer();
    buffer->reserve(stored.size());
    stored.copy(buffer->data(), stored.size());
    buffer->close();
    const foundation::MutexLock lock(m_mutex);
    assert(stored.size() == m_storedSize && !m_buffer && m_openCount == 0 && "the part is new, and the bytes its own");
    m_buffer = std::move(buffer);
}

bool OpenPartBuffer::hasLocalBytes() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    return m_buffer != nullptr;
}

void OpenPartBuffer::waitForLoading() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    foundation::MutexLock lock(m_mutex);
    m_condition.wait(lock, [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return !isLoading(); });
}

void OpenPartBuffer::discardIfUnmodified() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_ptr<Buffer> discarded;  // its file is deleted outside the lock
    const foundation::MutexLock lock(m_mutex);
    if (m_localDataVersion == LocalDataVersion::CLOUD) {  // (1)
        discarded = takeUnusedBuffer();
    }
}

void OpenPartBuffer::discardIfBlank() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_ptr<Buffer> discarded;  // as above
    const foundation::MutexLock lock(m_mutex);
    if (!m_isWritten && m_storedSize == 0) {  // (1)
        discarded = takeUnusedBuffer();
    }
}

std::uint64_t OpenPartBuffer::size() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    return m_size;
}

std::uint64_t OpenPartBuffer::end() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    return m_offset + m_size;
}

std::uint64_t OpenPartBuffer::increaseSize(std::uint64_t amount) {
    CLOUDPROVIDER_TRACE_FUNCTION(" amount=", amount);
    const foundation::MutexLock lock(m_mutex);
    return growTo(saturatingAdd(m_size, amount));
}

std::uint64_t OpenPartBuffer::increaseSize(std::uint64_t amount, std::uint64_t offset) {
    CLOUDPROVIDER_TRACE_FUNCTION(" amount=", amount, " offset=", offset);
    const foundation::MutexLock lock(m_mutex);
    return growTo(saturatingAdd(offset, amount));
}

std::uint64_t OpenPartBuffer::increaseSizeToMax() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    return growTo(m_capacity);
}

std::shared_ptr<OpenPartBuffer> OpenPartBuffer::makeShortened(std::uint64_t size, std::uint64_t capacity) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" size=", size);
    auto shortened = std::make_shared<OpenPartBuffer>(PartInfo{m_index, m_offset, size, {}}, LocalDataVersion::NEW,
                                                      capacity, m_context);
    std::unique_ptr<Buffer> copy;
    if (size != 0 && hasLocalBytes()) {
        copy = shortened->buildOpenBuffer();
        copy->reserve(size);
    }
    foundation::MutexLock lock(m_mutex);
    assert(size < m_size && "only what is there is cut off");
    const auto storedSize = std::min(m_storedSize, size);
    const bool isWritten = m_isWritten;
    if (!m_buffer) {
        copy.reset();  // they were given up meanwhile, and can be had again
    } else if (copy) {
        if (m_openCount == 0) {
            m_buffer->open();
        }
        std::memcpy(copy->data(), m_buffer->data(), size);
        if (m_openCount == 0) {
            m_buffer->close();
        }
        copy->close();
    }
    lock.unlock();
    shortened->takeShortened(storedSize, std::move(copy), isWritten);
    return shortened;
}

void OpenPartBuffer::setIsOnlyPart(bool isOnlyPart) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    m_isOnlyPart = isOnlyPart;
}

LocalDataVersion OpenPartBuffer::localDataVersion() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    return m_localDataVersion;
}

void OpenPartBuffer::markModified() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    m_localDataVersion = LocalDataVersion::NEW;
    m_isWritten = true;
}

std::optional<PartInfo> OpenPartBuffer::markUploading() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    if (m_localDataVersion != LocalDataVersion::NEW) {
        return std::nullopt;
    }
    assert(m_buffer && m_openCount != 0 && "bytes are handed over while they are local");
    std::optional<PartInfo> taken = record();                 // may fail, and then nothing has changed
    m_localDataVersion = LocalDataVersion::SCHEDULED_UPLOAD;  // (2)
    m_scheduledSize = m_size;
    m_uploaded.reset();
    return taken;
}

bool OpenPartBuffer::markUploadFailed() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    assert(m_localDataVersion != LocalDataVersion::CLOUD && "only what was handed over can be taken back");
    if (m_localDataVersion == LocalDataVersion::INVALID) {
        return true;
    }
    return std::exchange(m_localDataVersion, LocalDataVersion::NEW) == LocalDataVersion::NEW;
}

void OpenPartBuffer::recordUpload(std::uint64_t size, std::string tag) noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    assert(size <= m_size && "a part never shrinks");
    m_uploaded = Uploaded{size, std::move(tag)};  // (3), (6)
}

void OpenPartBuffer::markUploaded() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    m_storedSize = m_uploaded ? m_uploaded->size : m_scheduledSize;
    m_scheduledSize = m_storedSize;
    m_uploaded.reset();
    m_tag.clear();  // the upload's tag; the store may describe the part with another one
    if (m_localDataVersion != LocalDataVersion::NEW) {
        assert(m_size == m_storedSize && "what grows becomes NEW in the same step");  // (4)
        m_localDataVersion = LocalDataVersion::CLOUD;
        m_isWritten = false;
    }
}

void OpenPartBuffer::forgetUpload() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    m_uploaded.reset();
    m_tag.clear();
    m_scheduledSize = m_storedSize;
    if (m_localDataVersion == LocalDataVersion::SCHEDULED_UPLOAD) {
        m_localDataVersion = LocalDataVersion::NEW;
    }
}

std::optional<PartInfo> OpenPartBuffer::storedRecord() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    if (m_localDataVersion != LocalDataVersion::CLOUD || m_uploaded || m_storedSize == 0) {
        return std::nullopt;
    }
    return record();
}

std::optional<PartInfo> OpenPartBuffer::uploadedRecord() const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    if (!m_uploaded) {
        return std::nullopt;
    }
    return PartInfo{m_index, m_offset, m_uploaded->size, m_uploaded->tag};
}

void OpenPartBuffer::invalidate() noexcept {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_ptr<Buffer> discarded;  // as above
    const foundation::MutexLock lock(m_mutex);
    m_localDataVersion = LocalDataVersion::INVALID;
    m_storedSize = 0;
    m_scheduledSize = 0;
    m_isWritten = false;
    m_uploaded.reset();
    discarded = takeUnusedBuffer();
}

// False tells the first one that it has to load the bytes.
bool OpenPartBuffer::countOpener() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    foundation::MutexLock lock(m_mutex);
    waitInScope(m_condition, lock, [this]() CLOUDPROVIDER_REQUIRES(m_mutex) { return !isLoading(); });
    if (m_openCount == 0 && m_buffer) {
        m_buffer->open();  // before counting: when it fails nothing has changed
    }
    ++m_openCount;
    m_condition.notifyAll();
    return m_buffer != nullptr;
}

// By what is stored, not by the state: a part may have become NEW without having been local, and keeps its bytes.
void OpenPartBuffer::loadAsFirstOpener() {
    foundation::MutexLock lock(m_mutex);
    const bool hasStoredBytes = m_storedSize != 0;
    lock.unlock();
    if (hasStoredBytes) {
        download();
    } else {
        setOpenBuffer(buildOpenBuffer());  // a fresh file has zeros
    }
}

// Zeros follow what is stored.
void OpenPartBuffer::download() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    foundation::MutexLock lock(m_mutex);
    const ObjectRange range{m_offset, m_storedSize, m_isOnlyPart};
    lock.unlock();

    auto buffer = buildOpenBuffer();
    buffer->reserve(range.Size);
    // Mapping a cached part again costs more than copying its bytes out, unless they lie in large pages. Blank parts
    // are left alone: they fill bit by bit, and clearing large pages ahead of that made writing slower.
    foundation::adviseLargePages(buffer->data(), m_capacity);
    fetchRange(*m_context, range, buffer->data());
    setOpenBuffer(std::move(buffer));
}

std::unique_ptr<Buffer> OpenPartBuffer::buildOpenBuffer() const {
    auto buffer = m_context->bufferFactory->build(m_capacity);
    buffer->open();
    return buffer;
}

// Hands the loaded, mapped bytes over to all openers, with room for what the part has grown to meanwhile. When there is
// none, all is as before.
void OpenPartBuffer::setOpenBuffer(std::unique_ptr<Buffer> buffer) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const foundation::MutexLock lock(m_mutex);
    buffer->reserve(m_size);  // (5)
    m_buffer.swap(buffer);
    m_condition.notifyAll();
}

// (7): what makeShortened has found out; nobody else knows the part yet.
void OpenPartBuffer::takeShortened(std::uint64_t storedSize, std::unique_ptr<Buffer> copy, bool isWritten) noexcept {
    const foundation::MutexLock lock(m_mutex);
    m_storedSize = storedSize;
    m_scheduledSize = storedSize;
    m_isWritten = copy && isWritten;
    m_buffer = std::move(copy);
}

PartInfo OpenPartBuffer::record() const {
    return {m_index, m_offset, m_size, m_tag};
}

// Some opener brings the bytes local.
bool OpenPartBuffer::isLoading() const {
    return m_openCount != 0 && !m_buffer;
}

// The stored object ends where the part ended before: unless the part is sent anew, the write-back would copy, or
// complete the upload with, bytes that the store does not have. Hence NEW at once, before the bytes are there; who
// writes them marks the part again. Where the buffer needs room first, that is a system call under the mutex, as
// mapping is, so that nobody sees a size that has none.
std::uint64_t OpenPartBuffer::growTo(std::uint64_t size) {
    const auto former = m_size;
    if (const auto grown = std::min(size, m_capacity); grown > former) {
        if (m_buffer) {
            m_buffer->reserve(grown);  // (5)
        }
        m_size = grown;
        m_localDataVersion = LocalDataVersion::NEW;
    }
    return former;
}

// Empty while somebody has the part open. Let go of the buffer without the mutex.
std::unique_ptr<Buffer> OpenPartBuffer::takeUnusedBuffer() noexcept {
    return m_openCount == 0 ? std::move(m_buffer) : nullptr;
}

}  // namespace storage::cloudprovider
