// SPDX-License-Identifier: Apache-2.0
#include "OpenPartBuffer.hpp"

#include "Trace.hpp"
#include "saturatingAdd.hpp"
#include "translateException.hpp"

#include <foundation/services/Files.hpp>
#include <storage/cloudprovider/CloudException.hpp>

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/stream.hpp>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <utility>

namespace storage::cloudprovider {

// Where the current bytes of a part live:
//
//   CLOUD --markModified--> NEW --markUploading--> SCHEDULED_UPLOAD --markUploaded--> CLOUD
//                            ^------markModified----------'
//
// (1) Only CLOUD bytes may be discarded.
// (2) A NEW part is sent again, whatever was sent before.
// (3) A sent part stays SCHEDULED_UPLOAD until the whole upload has completed: before, the stored object has the old
//     bytes, which must be neither fetched nor copied in its place.
// (4) A CLOUD part has exactly m_storedSize bytes. Any other part has at least as many; those that it holds beyond
//     them were written here, or are zeros.

namespace {

namespace io = boost::iostreams;

// Takes an opener back unless dismissed.
class CountGuard {
public:
    explicit CountGuard(OpenPartBuffer& part) : m_part(&part) {}
    CountGuard(const CountGuard&) = delete;
    CountGuard& operator=(const CountGuard&) = delete;
    ~CountGuard() {
        if (m_part != nullptr) {
            try {
                m_part->decrementOpenCount();
            } catch (...) {
                traceCaughtException();
            }
        }
    }

    void dismiss() noexcept { m_part = nullptr; }

private:
    OpenPartBuffer* m_part;
};

// Keeps the first bytes that arrive and drops the rest.
class PrefixSink {
public:
    using char_type = char;
    using category = io::sink_tag;

    PrefixSink(char* data, std::uint64_t capacity, std::uint64_t& received)
        : m_data(data), m_capacity(capacity), m_received(&received) {}

    std::streamsize write(const char* bytes, std::streamsize count) {
        const auto kept = std::min(m_capacity - *m_received, static_cast<std::uint64_t>(count));
        std::memcpy(m_data + *m_received, bytes, kept);
        *m_received += kept;
        return count;
    }

private:
    char* m_data;
    std::uint64_t m_capacity;
    std::uint64_t* m_received;
};

void checkReceived(const OpenFileContext& context, std::uint64_t received, std::uint64_t expected) {
    if (received != expected) {
        throw UnknownErrorException(
            foundation::storage::provider::ExceptionContext("the store delivered " + std::to_string(received) + " of " +
                                                            std::to_string(expected) + " bytes of " + context.key));
    }
}

void fetchWholeObjectPrefix(const OpenFileContext& context, char* data, std::uint64_t size) {
    std::uint64_t received = 0;
    io::stream<PrefixSink> sink(PrefixSink(data, size, received));
    context.client->getObject(context.key, sink, 0, 0);
    sink.close();
    checkReceived(context, received, size);
}

void fetchRange(const OpenFileContext& context, char* data, std::uint64_t size, std::uint64_t first,
                std::uint64_t last) {
    io::stream<io::array_sink> sink(data, static_cast<std::streamsize>(size));
    context.client->getObject(context.key, sink, first, last);
    if (sink.bad()) {
        throw UnknownErrorException(foundation::storage::provider::ExceptionContext(
            "the store delivered more than the " + std::to_string(size) + " bytes asked for of " + context.key));
    }
    sink.clear();
    checkReceived(context, static_cast<std::uint64_t>(sink.tellp()), size);
}

}  // namespace

OpenPartBuffer::OpenPartBuffer(PartInfo info, LocalDataVersion version, bool isLastPart,
                               std::shared_ptr<OpenFileContext> context)
    : m_info(std::move(info)),
      m_localDataVersion(version),
      m_capacity(isLastPart ? std::max(m_info.Size, std::min(context->partSize, remainingAfter(m_info.Offset)))
                            : m_info.Size),
      m_storedSize(version == LocalDataVersion::CLOUD ? m_info.Size : 0),
      m_scheduledSize(m_storedSize),
      m_context(std::move(context)) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" m_info=", m_info, " m_localDataVersion=", m_localDataVersion);
}

OpenPartBuffer::~OpenPartBuffer() = default;

std::uint64_t OpenPartBuffer::size() const {
    const std::lock_guard lock(m_mutex);
    return m_info.Size;
}

void OpenPartBuffer::open() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (!incrementOpenCount()) {
        CountGuard guard(*this);
        loadAsFirstOpener();
        guard.dismiss();
    }
}

bool OpenPartBuffer::isOpen() const {
    const std::lock_guard lock(m_mutex);
    return m_openCount != 0;
}

char* OpenPartBuffer::data() {
    const std::lock_guard lock(m_mutex);
    return m_buffer ? m_buffer->data() : nullptr;
}

const char* OpenPartBuffer::data() const {
    const std::lock_guard lock(m_mutex);
    return m_buffer ? std::as_const(*m_buffer).data() : nullptr;
}

void OpenPartBuffer::close() {
    decrementOpenCount();
}

bool OpenPartBuffer::incrementOpenCount() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_lock lock(m_mutex);
    m_condition.wait(lock, [this] { return m_openCount == 0 || m_buffer; });
    if (m_openCount == 0 && m_buffer) {
        m_buffer->open();  // before counting: when it fails nothing has changed
    }
    ++m_openCount;
    m_condition.notify_all();
    return m_buffer != nullptr;
}

bool OpenPartBuffer::decrementOpenCount() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    --m_openCount;
    m_condition.notify_all();
    if (m_openCount != 0) {
        return false;
    }
    if (m_buffer) {
        m_buffer->close();
    }
    return true;
}

void OpenPartBuffer::setOpenBuffer(std::unique_ptr<Buffer> buffer) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    m_buffer.swap(buffer);
    m_condition.notify_all();
}

void OpenPartBuffer::download() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_lock lock(m_mutex);
    const auto first = m_info.Offset;
    const auto size = m_storedSize;
    const bool isWholeObject = m_isOnlyPart;
    lock.unlock();

    auto buffer = buildOpenBuffer();
    // Mapping a cached part again costs more than copying its bytes out, unless they lie in large pages. Blank parts
    // are left alone: they fill bit by bit, and clearing large pages ahead of that made writing slower.
    foundation::adviseLargePages(buffer->data(), m_capacity);
    const auto last = first + size - 1;
    if (isWholeObject) {
        fetchRange(*m_context, buffer->data(), size, 0, 0);
    } else if (last == 0) {
        // To the client the range 0..0 is the whole object, not its first byte.
        fetchWholeObjectPrefix(*m_context, buffer->data(), size);
    } else {
        fetchRange(*m_context, buffer->data(), size, first, last);
    }
    setOpenBuffer(std::move(buffer));
}

void OpenPartBuffer::createBlank() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    auto buffer = buildOpenBuffer();
    std::memset(buffer->data(), 0, size());
    setOpenBuffer(std::move(buffer));
}

bool OpenPartBuffer::openIfModified() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const bool hasBuffer = incrementOpenCount();
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

void OpenPartBuffer::discardIfUnmodified() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    std::unique_ptr<Buffer> discarded;  // its file is deleted outside the lock
    const std::lock_guard lock(m_mutex);
    if (m_openCount == 0 && m_localDataVersion == LocalDataVersion::CLOUD) {
        discarded = std::move(m_buffer);
    }
}

void OpenPartBuffer::markModified() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    m_localDataVersion = LocalDataVersion::NEW;
}

std::optional<PartInfo> OpenPartBuffer::markUploading() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    if (m_localDataVersion != LocalDataVersion::NEW) {
        return std::nullopt;
    }
    std::optional<PartInfo> record = m_info;
    m_localDataVersion = LocalDataVersion::SCHEDULED_UPLOAD;
    m_scheduledSize = m_info.Size;
    m_uploadTag.reset();
    return record;
}

void OpenPartBuffer::markUploaded() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    m_storedSize = m_scheduledSize;
    m_info.Tag = m_uploadTag.value_or(std::string());
    m_uploadTag.reset();
    if (m_localDataVersion != LocalDataVersion::NEW) {
        m_localDataVersion = LocalDataVersion::CLOUD;
    }
}

void OpenPartBuffer::recordUploadTag(const std::string& tag) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    m_uploadTag = tag;
}

std::optional<PartInfo> OpenPartBuffer::uploadedRecord() const {
    const std::lock_guard lock(m_mutex);
    if (!m_uploadTag) {
        return std::nullopt;
    }
    return PartInfo{m_info.Index, m_info.Offset, m_info.Size, *m_uploadTag};
}

std::uint64_t OpenPartBuffer::increaseSize(std::uint64_t amount) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" amount=", amount);
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_info.Size, std::min(saturatingAdd(m_info.Size, amount), m_capacity));
}

std::uint64_t OpenPartBuffer::increaseSize(std::uint64_t amount, std::uint64_t offset) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" amount=", amount, " offset=", offset);
    const std::lock_guard lock(m_mutex);
    const auto newSize = std::min(saturatingAdd(offset, amount), m_capacity);
    return std::exchange(m_info.Size, std::max(m_info.Size, newSize));
}

// The stored object ends where the part ended before: unless the part is sent anew, the flush would copy, or
// complete the upload with, bytes that the store does not have.
std::uint64_t OpenPartBuffer::increaseSizeToMax() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    if (m_info.Size < m_capacity) {
        m_localDataVersion = LocalDataVersion::NEW;
    }
    return std::exchange(m_info.Size, std::max(m_info.Size, m_capacity));
}

PartInfo OpenPartBuffer::info() const {
    const std::lock_guard lock(m_mutex);
    return m_info;
}

OpenPartBuffer::View OpenPartBuffer::view() const {
    const std::lock_guard lock(m_mutex);
    return {m_buffer ? m_buffer->data() : nullptr, m_info.Size, m_localDataVersion};
}

LocalDataVersion OpenPartBuffer::localDataVersion() const {
    const std::lock_guard lock(m_mutex);
    return m_localDataVersion;
}

bool OpenPartBuffer::hasLocalBytes() const {
    const std::lock_guard lock(m_mutex);
    return m_buffer != nullptr;
}

std::uint64_t OpenPartBuffer::index() const {
    const std::lock_guard lock(m_mutex);
    return m_info.Index;
}

std::uint64_t OpenPartBuffer::offset() const {
    const std::lock_guard lock(m_mutex);
    return m_info.Offset;
}

std::uint64_t OpenPartBuffer::end() const {
    const std::lock_guard lock(m_mutex);
    return m_info.Offset + m_info.Size;
}

std::uint64_t OpenPartBuffer::capacity() const {
    return m_capacity;
}

std::uint64_t OpenPartBuffer::capacityEnd() const {
    const std::lock_guard lock(m_mutex);
    return m_info.Offset + m_capacity;
}

bool OpenPartBuffer::isOnlyPart() const {
    const std::lock_guard lock(m_mutex);
    return m_isOnlyPart;
}

void OpenPartBuffer::setIsOnlyPart(bool isOnlyPart) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const std::lock_guard lock(m_mutex);
    m_isOnlyPart = isOnlyPart;
}

// By what is stored, not by the state: a part may have become NEW without having been local, and keeps its bytes.
void OpenPartBuffer::loadAsFirstOpener() {
    std::unique_lock lock(m_mutex);
    const bool hasStoredBytes = m_storedSize != 0;
    lock.unlock();
    if (hasStoredBytes) {
        download();
    } else {
        createBlank();
    }
}

std::unique_ptr<Buffer> OpenPartBuffer::buildOpenBuffer() const {
    auto buffer = m_context->bufferFactory->build(m_capacity);
    buffer->open();
    return buffer;
}

OpenPartHold::OpenPartHold(std::shared_ptr<OpenPartBuffer> part) : m_part(std::move(part)) {
    m_part->open();
}

OpenPartHold::OpenPartHold(std::shared_ptr<OpenPartBuffer> part, Adopted) noexcept : m_part(std::move(part)) {}

OpenPartHold::~OpenPartHold() {
    if (m_part) {
        try {
            close();
        } catch (...) {
            traceCaughtException();
        }
    }
}

OpenPartHold OpenPartHold::adopt(std::shared_ptr<OpenPartBuffer> part) {
    return {std::move(part), Adopted()};
}

bool OpenPartHold::close() {
    return std::exchange(m_part, nullptr)->decrementOpenCount();
}

}  // namespace storage::cloudprovider
