// SPDX-License-Identifier: Apache-2.0
#include "mount/OpenFile.hpp"

#include "mount/errnoOf.hpp"
#include "mount/log.hpp"

#include <foundation/services/InterruptScope.hpp>
#include <storage/cloudprovider/abandonStream.hpp>
#include <storage/cloudprovider/detachStream.hpp>
#include <storage/cloudprovider/resizeStream.hpp>
#include <storage/cloudprovider/storeStream.hpp>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <utility>

// A stream of the provider holds the file's content: the last one to close stores it, and loses it when that fails. So
// the stream that writes is closed only when everything is stored, or given up on purpose; storing is always asked for.
//
// The engine tells streams apart by the path that they were opened with. A renamed file has all its streams closed,
// and opened again when they are needed.

namespace cloudfs::mount {

using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::ErrorCode;

namespace {

// What is fetched of a file before it is replaced under its readers: as much as is read in a moment.
constexpr std::uint64_t kMostFetched = std::uint64_t{64} << 20U;
// No part is smaller.
constexpr std::uint64_t kSmallestPart = std::uint64_t{64} << 10U;

std::int64_t toOffset(std::uint64_t offset) {
    if (offset > static_cast<std::uint64_t>(INT64_MAX)) {
        throw ErrnoError(EFBIG);
    }
    return static_cast<std::int64_t>(offset);
}

std::uint64_t sizeOf(ByteStream& stream) {
    return static_cast<std::uint64_t>(static_cast<std::streamoff>(stream.seek(0, std::ios_base::end)));
}

// How often waiting looks at the thread's interrupt.
constexpr boost::chrono::milliseconds kInterruptInterval(100);

// Waits no longer than until the thread is interrupted. Boost's mutex, as thread checkers do not see the standard one
// being locked by a time.
boost::unique_lock<boost::timed_mutex> lockInScope(boost::timed_mutex& mutex) {
    boost::unique_lock<boost::timed_mutex> lock(mutex, boost::defer_lock);
    while (!lock.try_lock_for(kInterruptInterval)) {
        foundation::InterruptScope::throwIfRequested();
    }
    return lock;
}

}  // namespace

OpenFile::OpenFile(MountedStore store, StorePath path) : m_store(std::move(store)), m_path(std::move(path)) {}

// What is not stored by now is given up: whoever lets it go has told so.
OpenFile::~OpenFile() {
    if (!m_writer) {
        return;
    }
    try {
        if (!storage::cloudprovider::abandonStream(*m_writer)) {
            storage::cloudprovider::detachStream(*m_writer);
        }
    } catch (const std::exception& failure) {
        logFailure(m_path, failure);
    }
}

// As lockInScope: who renames or removes the file may wait for the store.
OpenFile::Shared OpenFile::shareInScope() const {
    Shared gate(m_gate, boost::defer_lock);
    while (!gate.try_lock_for(kInterruptInterval)) {
        foundation::InterruptScope::throwIfRequested();
    }
    return gate;
}

std::shared_ptr<FileHandle> OpenFile::open(const OpenMode& mode, std::optional<std::uint64_t> toldSize) {
    const auto gate = shareInScope();
    if (m_isDetached) {
        throw ErrnoError(ESTALE);
    }
    tellFailureOfClose();
    auto handle = std::make_shared<FileHandle>(mode.writes);
    const bool isFirst = !isOpen() && !isUnsaved();
    if (mode.writes) {
        const std::lock_guard lock(m_writerMutex);
        noteSize(writer());
        ++m_writers;
    } else {
        noteSize(reader(*handle));
        handle->m_position.reset();  // it was sought
    }
    {
        const std::lock_guard lock(m_stateMutex);
        m_handles.insert(handle);
    }
    try {
        if (mode.truncates) {
            resizeGated(0);
        } else if (isFirst && toldSize && toldSize != status().size) {
            throw ErrnoError(ESTALE);
        }
    } catch (...) {
        closeGated(*handle);
        throw;
    }
    return handle;
}

// Whoever finds that something is left of a description that is closed tries to store it.
void OpenFile::tellFailureOfClose() {
    if (!isUnsaved() || isWritten()) {
        return;  // before waiting for a store that is under way
    }
    const auto lock = lockInScope(m_writerMutex);
    if (!isUnsaved() || m_writers != 0) {
        return;
    }
    try {
        storeLocked();
    } catch (...) {
        const std::lock_guard state(m_stateMutex);
        if (std::exchange(m_hasUntoldFailure, false)) {
            throw;
        }
    }
}

void OpenFile::close(FileHandle& handle) noexcept {
    const Shared gate(m_gate);
    closeGated(handle);
}

void OpenFile::closeGated(FileHandle& handle) noexcept {
    {
        const std::lock_guard lock(handle.m_mutex);
        if (const auto stream = std::move(handle.m_reader)) {
            try {
                stream->close();
            } catch (const std::exception& failure) {
                logFailure(m_path, failure);
            }
        }
    }
    if (handle.m_writes) {
        const std::lock_guard lock(m_writerMutex);
        --m_writers;
        if (m_writers == 0) {
            closeWriterLocked();
        }
    }
    const std::lock_guard state(m_stateMutex);
    std::erase_if(m_handles, [&](const auto& each) { return each.get() == &handle; });
    if (m_handles.empty() && !isUnsavedLocked()) {
        m_size.reset();
    }
}

void OpenFile::closeWriterLocked() noexcept {
    try {
        storeLocked();
        if (const auto stream = std::move(m_writer)) {
            stream->close();
        }
    } catch (const std::exception& failure) {
        logFailure(m_path, failure);
        const std::lock_guard state(m_stateMutex);
        m_hasUntoldFailure = true;
    }
}

std::size_t OpenFile::read(FileHandle& handle, char* buffer, std::size_t size, std::uint64_t offset) {
    const auto position = toOffset(offset);
    const auto gate = shareInScope();
    const auto lock = lockInScope(handle.m_mutex);
    if (m_isDetached && !handle.m_reader) {
        const std::lock_guard writing(m_writerMutex);
        if (!m_writer) {
            throw ErrnoError(ESTALE);
        }
        m_writer->seek(position, std::ios_base::beg);
        return readFully(*m_writer, buffer, size);
    }
    auto& stream = reader(handle);
    if (handle.m_position != offset) {
        handle.m_position.reset();
        stream.seek(position, std::ios_base::beg);
    }
    handle.m_position.reset();
    const auto count = readFully(stream, buffer, size);
    if (count == size) {  // one that met the end stays there until it is sought
        handle.m_position = offset + count;
    }
    return count;
}

std::size_t readFully(ByteStream& stream, char* buffer, std::size_t size) {
    std::size_t total = 0;
    while (total < size) {
        const auto count = stream.read(buffer + total, static_cast<std::int64_t>(size - total));
        if (count <= 0) {
            break;
        }
        total += static_cast<std::size_t>(count);
    }
    return total;
}

void OpenFile::write(std::string_view data, std::uint64_t offset) {
    const auto position = toOffset(offset);
    const Shared gate(m_gate);
    const std::lock_guard lock(m_writerMutex);
    auto& stream = writer();
    {
        const std::lock_guard state(m_stateMutex);
        ++m_changes;  // also when it fails: some of the bytes may be in the file
        m_modified = std::chrono::system_clock::now();
    }
    stream.seek(position, std::ios_base::beg);
    for (auto rest = data; !rest.empty();) {
        const auto count = stream.write(rest.data(), static_cast<std::int64_t>(rest.size()));
        if (count <= 0) {
            throw ErrnoError(EIO);
        }
        const auto end = offset + (data.size() - rest.size()) + static_cast<std::uint64_t>(count);
        m_ranges.add(offset, end);
        rest.remove_prefix(static_cast<std::size_t>(count));
        const std::lock_guard state(m_stateMutex);
        m_size = std::max(m_size.value_or(0), end);
    }
}

void OpenFile::resize(std::uint64_t size) {
    const Shared gate(m_gate);
    resizeGated(size);
}

void OpenFile::resizeGated(std::uint64_t size) {
    const std::lock_guard lock(m_writerMutex);
    auto& stream = writer();
    noteSize(stream);
    storage::cloudprovider::resizeStream(stream, size);
    m_ranges.resize(size);
    const std::lock_guard state(m_stateMutex);
    if (m_size != size) {
        m_size = size;
        ++m_changes;
        m_modified = std::chrono::system_clock::now();
    }
}

void OpenFile::resizeNow(std::uint64_t size) {
    const auto handle = open({.writes = true}, std::nullopt);
    const bool wasUnsaved = isUnsaved();
    try {
        resize(size);
        store();
    } catch (...) {
        {
            const std::lock_guard lock(m_writerMutex);
            const std::lock_guard state(m_stateMutex);
            if (!wasUnsaved && m_handles.size() == 1 && m_writer && storage::cloudprovider::abandonStream(*m_writer)) {
                m_writer.reset();
                m_ranges.clear();
                m_storedChanges = m_changes;
            }
        }
        close(*handle);
        throw;
    }
    close(*handle);
}

void OpenFile::store() {
    const Shared gate(m_gate);
    const std::lock_guard lock(m_writerMutex);
    storeLocked();
}

void OpenFile::storeAlone() {
    const std::lock_guard lock(m_writerMutex);
    storeLocked();
}

void OpenFile::storeLocked() {
    std::unique_lock state(m_stateMutex);
    if (!isUnsavedLocked()) {
        return;
    }
    const auto changes = m_changes;
    state.unlock();
    try {
        storage::cloudprovider::storeStream(writer());
    } catch (const foundation::storage::provider::ByteStreamFailure& failure) {
        state.lock();
        m_isConflicted = failure.getErrorCode() == ErrorCode::InUse;
        throw;
    }
    m_ranges.clear();
    state.lock();
    m_storedChanges = changes;
    m_isConflicted = false;
    m_hasUntoldFailure = false;
    state.unlock();
    m_store.listings->forget(m_path);
}

bool OpenFile::isUnsaved() const {
    const std::lock_guard state(m_stateMutex);
    return isUnsavedLocked();
}

bool OpenFile::isIdle() const {
    const std::lock_guard state(m_stateMutex);
    return m_handles.empty() && !isUnsavedLocked();
}

bool OpenFile::isOpen() const {
    const std::lock_guard state(m_stateMutex);
    return !m_handles.empty();
}

bool OpenFile::isWritten() const {
    const std::lock_guard state(m_stateMutex);
    return !m_isDetached &&
           std::any_of(m_handles.begin(), m_handles.end(), [](const auto& handle) { return handle->writes(); });
}

bool OpenFile::isConflicted() const {
    const std::lock_guard state(m_stateMutex);
    return m_isConflicted && !m_hasUntoldFailure && isUnsavedLocked();
}

OpenFile::Status OpenFile::status() const {
    const std::lock_guard state(m_stateMutex);
    return {m_size, isUnsavedLocked() || m_isDetached ? std::optional(m_modified) : std::nullopt};
}

StorePath OpenFile::path() const {
    const Shared gate(m_gate);
    return m_path;
}

void OpenFile::fetchSome() noexcept {
    try {
        const auto size = status().size.value_or(0);
        const std::lock_guard lock(m_writerMutex);
        ByteStream* stream = m_writer.get();
        for (const auto& handle : m_handles) {
            stream = handle->m_reader ? handle->m_reader.get() : stream;
            handle->m_position.reset();
        }
        char byte = 0;
        for (std::uint64_t offset = 0; stream != nullptr && offset < std::min(size, kMostFetched);
             offset += kSmallestPart) {
            stream->seek(static_cast<std::int64_t>(offset), std::ios_base::beg);
            stream->read(&byte, 1);
        }
    } catch (const std::exception& failure) {
        logFailure(m_path, failure);
    }
}

void OpenFile::leaveName() {
    const std::lock_guard lock(m_writerMutex);
    ByteStream* stream = m_writer.get();
    for (const auto& handle : m_handles) {
        stream = handle->m_reader ? handle->m_reader.get() : stream;
    }
    if (stream != nullptr) {
        storage::cloudprovider::detachStream(*stream);
    }
    const std::lock_guard state(m_stateMutex);
    m_isDetached = true;
    m_isConflicted = false;
    m_hasUntoldFailure = false;
    m_ranges.clear();
}

void OpenFile::moveTo(const StorePath& path) {
    assert(!isUnsaved() && "only what is stored can be had under another name");
    const std::lock_guard lock(m_writerMutex);
    std::vector<std::unique_ptr<ByteStream>> closed;
    for (const auto& handle : m_handles) {
        closed.push_back(std::move(handle->m_reader));
        handle->m_position.reset();
    }
    closed.push_back(std::move(m_writer));
    for (const auto& stream : closed) {
        try {
            if (stream) {
                stream->close();
            }
        } catch (const std::exception& failure) {
            logFailure(m_path, failure);
        }
    }
    m_path = path;
}

ByteStream& OpenFile::reader(FileHandle& handle) {
    if (!handle.m_reader) {
        handle.m_reader = m_store.provider->openReadOnlyStream(m_path.iri());
        handle.m_position = 0;
    }
    return *handle.m_reader;
}

// With m_writerMutex held.
ByteStream& OpenFile::writer() {
    if (!m_writer) {
        if (m_isDetached) {
            throw ErrnoError(ESTALE);
        }
        m_writer = m_store.provider->openStream(
            m_path.iri(), {ByteStreamOpenOptions::Access::ReadWrite, ByteStreamOpenOptions::ExistingContent::Preserve,
                           ByteStreamOpenOptions::Presence::Required, ByteStreamOpenOptions::WriteMode::Positioned});
    }
    return *m_writer;
}

// The first stream tells; from then on everything that changes the size passes here.
void OpenFile::noteSize(ByteStream& stream) {
    {
        const std::lock_guard state(m_stateMutex);
        if (m_size) {
            return;
        }
    }
    const auto size = sizeOf(stream);
    const std::lock_guard state(m_stateMutex);
    m_size = m_size.value_or(size);
}

}  // namespace cloudfs::mount
