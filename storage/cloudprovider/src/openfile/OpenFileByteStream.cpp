// SPDX-License-Identifier: Apache-2.0
#include "openfile/OpenFileByteStream.hpp"

#include "support/Trace.hpp"
#include "support/host.hpp"
#include "support/translateException.hpp"

#include <boost/numeric/conversion/cast.hpp>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <exception>
#include <limits>
#include <utility>
#include <vector>

namespace storage::cloudprovider {

namespace detail {

// The one place where bytes of a part change while others may read them: an upload of the same part, or
// another stream. That is allowed: the writer marks the part modified afterwards, so it is sent again, and
// streams of one file that overlap see old or new bytes. Only the bytes race; sizes, states and tags are
// guarded. Thread checkers know this function by its name (cmake/tsan.supp), hence it is not inlined.
[[gnu::noinline]] void copyIntoPart(char* target, const char* source, std::size_t count) {
    std::memcpy(target, source, count);
}

}  // namespace detail

namespace {

// Puts a position back unless it is told to keep it: the caller of an operation that failed half-way does not know how
// far it got, and will try all of it again.
class PositionGuard {
public:
    explicit PositionGuard(std::uint64_t& position) : m_position(position), m_former(position) {}
    PositionGuard(const PositionGuard&) = delete;
    PositionGuard& operator=(const PositionGuard&) = delete;
    ~PositionGuard() { m_position = m_former; }

    void keep() noexcept { m_former = m_position; }

private:
    std::uint64_t& m_position;
    std::uint64_t m_former;
};

void giveBack(OpenPartManager& partManager, std::vector<OpenPartHold> holds) {
    for (auto& hold : holds) {
        partManager.closePart(std::move(hold));
    }
}

template <typename Failure>
void failIfClosed(const std::shared_ptr<OpenPartManager>& partManager) {
    if (!partManager) {
        throw Failure(host::ErrorCode::Unknown, host::ExceptionContext("the stream is closed"));
    }
}

}  // namespace

OpenFileByteStream::OpenFileByteStream(WriteMode writeMode) : m_writeMode(writeMode) {
    CLOUDPROVIDER_TRACE_FUNCTION();
}

OpenFileByteStream::~OpenFileByteStream() {
    try {
        OpenFileByteStream::doClose();
    } catch (...) {
        traceCaughtException();
    }
}

void OpenFileByteStream::attach(std::shared_ptr<OpenPartManager> partManager,
                                std::optional<ChangePoint> change) noexcept {
    assert(!m_partManager && "a stream is opened once");
    m_partManager = std::move(partManager);
    m_lastChange = change;
}

bool OpenFileByteStream::abandon() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    if (m_partManager) {
        if (!m_partManager->abandonChanges()) {
            return false;
        }
        m_device.reset();
        if (const auto ahead = std::move(m_readAhead)) {
            ahead->want({});  // what was kept is closed, and kept in no cache: the file goes
        }
        std::exchange(m_partManager, nullptr)->unregisterByteStream(std::nullopt);
    }
    return true;
}

void OpenFileByteStream::store() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    requireOpen();
    m_partManager->storeChanges();
}

void OpenFileByteStream::storeAtClose() noexcept {
    m_storesAtClose = true;
}

void OpenFileByteStream::resize(std::uint64_t size) {
    CLOUDPROVIDER_TRACE_FUNCTION(" size=", size);
    requireOpen();
    if (m_partManager->resize(size)) {
        m_lastChange = m_partManager->changePoint();
    }
}

void OpenFileByteStream::detach() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    requireOpen();
    m_partManager->detach();
}

void OpenFileByteStream::requireOpen() const {
    failIfClosed<host::ByteStreamWriteFailure>(m_partManager);
}

std::int64_t OpenFileByteStream::doRead(char* buffer, std::int64_t count) {
    CLOUDPROVIDER_TRACE_FUNCTION(" n=", count);
    const auto wanted = boost::numeric_cast<std::uint64_t>(count);
    failIfClosed<host::ByteStreamReadFailure>(m_partManager);

    PositionGuard position(m_fileOffset);
    std::uint64_t total = 0;
    bool isFreshDevice = false;
    while (!m_isAtEnd && total < wanted) {
        if (!m_device) {
            m_device = m_partManager->openPart(m_fileOffset, false);
            m_isAtEnd = !m_device;
            isFreshDevice = true;
            readAhead();
            continue;
        }
        const auto view = m_device->part().view();
        if (view.version == LocalDataVersion::INVALID) {
            giveDeviceBack();
            continue;
        }
        const auto copied = copyFromDevice(view, buffer + total, wanted - total);
        total += copied;
        if (total < wanted) {
            giveDeviceBack();  // the rest lies in the next part
            m_isAtEnd = isFreshDevice && copied == 0;
            m_isReadingOn = true;
        }
    }
    position.keep();
    const std::int64_t bytesRead = m_isAtEnd && total == 0 ? -1 : static_cast<std::int64_t>(total);
    CLOUDPROVIDER_TRACE_VALUES("bytesRead", '=', bytesRead);
    return bytesRead;
}

std::int64_t OpenFileByteStream::doWrite(const char* data, std::int64_t count) {
    CLOUDPROVIDER_TRACE_FUNCTION(" n=", count);
    const auto wanted = boost::numeric_cast<std::uint64_t>(count);
    requireOpen();
    m_partManager->checkRoomFor(m_writeMode == WriteMode::Append ? m_partManager->getFileSize() : m_fileOffset, wanted);
    m_partManager->rerunFailedUploads();

    PositionGuard position(m_fileOffset);
    std::uint64_t total = 0;
    while (!m_isAtEnd && total < wanted) {
        if (!m_device) {
            openDeviceForWriting();
            continue;
        }
        total += putIntoFile(data + total, wanted - total).value_or(0);
        if (total < wanted) {
            giveDeviceBack();  // the rest goes into the next part, or into the one that has taken this one's place
        }
    }
    position.keep();
    const std::int64_t bytesWritten = total == 0 ? -1 : static_cast<std::int64_t>(total);
    CLOUDPROVIDER_TRACE_VALUES("bytesWritten", '=', bytesWritten);
    return bytesWritten;
}

std::streampos OpenFileByteStream::doSeek(std::int64_t offset, std::ios_base::seekdir way) {
    CLOUDPROVIDER_TRACE_FUNCTION(" off=", offset, " way=", static_cast<int>(way));
    failIfClosed<host::ByteStreamSeekFailure>(m_partManager);
    const auto target = seekTarget(offset, way);
    m_fileOffset = target;
    m_isAtEnd = false;
    if (m_device) {
        const auto begin = m_device->part().offset();
        const auto capacity = m_device->part().capacity();
        if (target < begin || target - begin >= capacity) {
            giveDeviceBack();
            stopReadingAhead();
        } else {
            m_device->position = target - begin;
        }
    }
    CLOUDPROVIDER_TRACE_VALUES("m_fileOffset", '=', target);
    return static_cast<std::streamoff>(target);
}

// Every step is taken whatever became of the ones before; the first failure is the one that is reported, unless
// everything is stored in the end.
void OpenFileByteStream::doClose() {
    CLOUDPROVIDER_TRACE_FUNCTION();
    auto device = std::move(m_device);
    auto partManager = std::move(m_partManager);
    std::exception_ptr failure;
    const auto record = [&failure](auto step) {
        try {
            step();
        } catch (...) {
            traceCaughtException();
            if (!failure) {
                failure = std::current_exception();
            }
        }
    };
    if (device) {
        record([&] { partManager->closePart(std::move(device)); });
    }
    if (const auto ahead = std::move(m_readAhead); ahead && partManager) {
        record([&] { giveBack(*partManager, ahead->want({})); });
    }
    bool isStored = false;
    if (partManager && m_storesAtClose) {
        record([&] {
            partManager->storeChanges();
            isStored = true;
        });
        if (!isStored) {
            partManager->abandonChanges();
        }
    }
    if (partManager) {
        record([&] { isStored = partManager->unregisterByteStream(m_lastChange) || isStored; });
    }
    partManager.reset();
    if (failure && !isStored) {
        throw failure;  // NOLINT(misc-throw-by-value-catch-by-reference): the pointer itself is what is
                        // thrown
    }
}

std::uint64_t OpenFileByteStream::copyFromDevice(const OpenPartBuffer::View& view, char* target, std::uint64_t count) {
    const auto available = view.size - std::min(m_device->position, view.size);
    const auto copied = std::min(available, count);
    std::memcpy(target, view.data + m_device->position, copied);
    m_device->position += copied;
    m_fileOffset += copied;
    return copied;
}

// In one step for those who resize the file. Nothing: it has the part no longer.
std::optional<std::uint64_t> OpenFileByteStream::putIntoFile(const char* source, std::uint64_t count) {
    const auto size = m_partManager->holdSize();
    if (m_device->part().view().version == LocalDataVersion::INVALID) {
        return std::nullopt;
    }
    return m_writeMode == WriteMode::Append ? appendToDevice(source, count) : writeToDevice(source, count);
}

// Another stream may have appended since: where the bytes go is decided by growing the part, in one step.
std::uint64_t OpenFileByteStream::appendToDevice(const char* source, std::uint64_t count) {
    auto& part = m_device->part();
    m_device->position = part.increaseSize(count);
    const auto copied = std::min(part.capacity() - m_device->position, count);
    putIntoDevice(source, copied);
    m_fileOffset = part.end();
    return copied;
}

std::uint64_t OpenFileByteStream::writeToDevice(const char* source, std::uint64_t count) {
    auto& part = m_device->part();
    part.increaseSize(count, m_device->position);
    const auto copied = std::min(part.capacity() - m_device->position, count);
    putIntoDevice(source, copied);
    m_fileOffset += copied;
    return copied;
}

void OpenFileByteStream::putIntoDevice(const char* source, std::uint64_t count) {
    if (count != 0) {
        auto& part = m_device->part();
        detail::copyIntoPart(part.data() + m_device->position, source, count);
        m_device->position += count;
        part.markModified();
        m_lastChange = m_partManager->changePoint();
    }
}

void OpenFileByteStream::openDeviceForWriting() {
    if (m_writeMode == WriteMode::Append) {
        m_device = m_partManager->openEnd();
        m_fileOffset = m_device->part().offset() + m_device->position;
    } else {
        m_device = m_partManager->openPart(m_fileOffset, true);
    }
    m_isAtEnd = !m_device;
}

void OpenFileByteStream::giveDeviceBack() {
    m_partManager->closePart(std::move(m_device));
}

// Once a part was read to its end, the next ones are wanted.
void OpenFileByteStream::readAhead() {
    if (!m_device || !std::exchange(m_isReadingOn, false)) {
        return;
    }
    if (!m_readAhead) {
        m_readAhead = m_partManager->makeReadAhead();
    }
    if (m_readAhead) {
        giveBack(*m_partManager, m_readAhead->want(m_partManager->partsAhead(m_device->part())));
    }
}

void OpenFileByteStream::stopReadingAhead() {
    m_isReadingOn = false;
    if (m_readAhead) {
        giveBack(*m_partManager, m_readAhead->want({}));
    }
}

std::uint64_t OpenFileByteStream::seekTarget(std::int64_t offset, std::ios_base::seekdir way) const {
    constexpr auto kMaxPosition = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::uint64_t base = 0;
    if (way == std::ios_base::cur) {
        base = m_fileOffset;
    } else if (way != std::ios_base::beg) {
        base = m_partManager->getFileSize();
    }
    if (offset < 0) {
        if (offset == std::numeric_limits<std::int64_t>::min()) {
            throw boost::numeric::negative_overflow();  // has no magnitude
        }
        const auto magnitude = static_cast<std::uint64_t>(-offset);
        base = base > magnitude ? base - magnitude : 0;
    } else {
        const auto distance = static_cast<std::uint64_t>(offset);
        if (base > kMaxPosition || distance > kMaxPosition - base) {
            throw boost::numeric::positive_overflow();
        }
        base += distance;
    }
    return boost::numeric_cast<std::uint64_t>(boost::numeric_cast<std::int64_t>(base));
}

}  // namespace storage::cloudprovider
