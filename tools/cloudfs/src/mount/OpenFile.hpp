// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mount/ChangedRanges.hpp"
#include "mount/Listings.hpp"
#include "mount/errnoOf.hpp"
#include "store/StorePath.hpp"

#include <foundation/storage/provider/ByteStream.hpp>
#include <foundation/storage/provider/IProvider.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/shared_mutex.hpp>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ios>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

namespace cloudfs::mount {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::IProvider;

/// What a mount works on. A plain value; several owners share what it points to.
struct MountedStore {
    std::shared_ptr<storage::cloudprovider::ExtendedCloudClient> client;
    std::shared_ptr<IProvider> provider;
    std::shared_ptr<Listings> listings;
};

/// How a program opened a file.
struct OpenMode {
    bool reads = false;
    bool writes = false;
    bool truncates = false;
};

/// One open file description: where it reads. Everything is done by its OpenFile.
class FileHandle {
public:
    explicit FileHandle(bool writes) : m_writes(writes) {}

    bool writes() const noexcept { return m_writes; }

private:
    friend class OpenFile;

    const bool m_writes;
    boost::timed_mutex m_mutex;  // guards what follows; I/O under it, as a stream has one position
    std::unique_ptr<ByteStream> m_reader;
    std::optional<std::uint64_t> m_position;  // where the stream reads on; nothing: it has to be sought
};

/// A file of the mount that is open, or has something that is not stored: all its descriptions share its content, which
/// leaves for the store when one that writes is closed or asks for it. What cannot be stored is kept here, and can be
/// stored later. One stream writes, and each description has one that reads.
///
/// Errors   Exception, ByteStreamFailure, ErrnoError.
/// Threads  any, but what an Alone is needed for.
class OpenFile {
public:
    using Gate = boost::shared_mutex;
    using Alone = boost::unique_lock<Gate>;
    using TimePoint = std::chrono::system_clock::time_point;

    /// What there is to know of a file without asking the store.
    struct Status {
        std::optional<std::uint64_t> size;  ///< nothing: the store knows
        std::optional<TimePoint> modified;  ///< of what is not stored yet
    };

    OpenFile(MountedStore store, StorePath path);
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile();

    /// Hold the file so that nobody else uses it: no operation is in progress, none begins.
    Alone alone() { return Alone(m_gate); }

    /// Open it. What an earlier close could not store is stored first; a failure is told once, by the first who comes.
    /// toldSize: the size that the kernel was told. ErrnoError ESTALE when it is not the right one for the first
    /// description, with nothing opened, or when the file has left its name.
    std::shared_ptr<FileHandle> open(const OpenMode& mode, std::optional<std::uint64_t> toldSize);

    /// Close a description; what is not stored is stored, if nobody else will. A failure is logged and kept for the
    /// next who opens the file.
    void close(FileHandle& handle) noexcept;

    /// Bytes from offset on, fewer only at the end.
    std::size_t read(FileHandle& handle, char* buffer, std::size_t size, std::uint64_t offset);

    /// Write all of data.
    void write(std::string_view data, std::uint64_t offset);

    void resize(std::uint64_t size);

    /// Resize the file, and store it: nobody will close it. What cannot be stored is given up if nobody has it open.
    void resizeNow(std::uint64_t size);

    /// Store what was changed; nothing to do when nothing was.
    void store();

    bool isUnsaved() const;
    /// Whether nobody has it open and nothing is left to be stored.
    bool isIdle() const;
    /// Whether descriptions are open.
    bool isOpen() const;
    /// Whether descriptions are open that write.
    bool isWritten() const;
    /// Whether somebody else replaced the object, as far as the last failure tells.
    bool isConflicted() const;
    Status status() const;
    StorePath path() const;

    /// What there is of the bytes that are not stored, in the order of their positions. Whoever stores them at the
    /// moment is waited for, longer than a store waits for others; ErrnoError EBUSY when that was not enough.
    ///
    /// Values   begin(size, kept), called first: see ChangedRanges; bytes(offset, data).
    /// Result   false, with nothing called: everything is stored.
    template <typename Begin, typename Bytes>
    bool tellUnsaved(Begin begin, Bytes bytes);

    // The rest for who holds an Alone of this file.

    /// As store.
    void storeAlone();

    /// Fetch what the file has, up to a limit, since it is about to be replaced. Failures are nobody's.
    void fetchSome() noexcept;

    /// Have the file leave its name: its descriptions keep what they have, nothing is stored any more.
    void leaveName();

    /// Have the file be that of another path, where the same bytes are stored. Everything must be stored.
    void moveTo(const StorePath& path);

private:
    using Shared = boost::shared_lock<Gate>;

    // With the gate held, at least shared.
    void closeGated(FileHandle& handle) noexcept;
    void resizeGated(std::uint64_t size);
    ByteStream& reader(FileHandle& handle);
    Shared shareInScope() const;
    void noteSize(ByteStream& stream);
    void tellFailureOfClose();
    // With m_writerMutex held, too.
    ByteStream& writer();
    void storeLocked();
    void closeWriterLocked() noexcept;
    // With m_stateMutex held.
    bool isUnsavedLocked() const noexcept { return !m_isDetached && m_changes != m_storedChanges; }

    const MountedStore m_store;

    // Shared by whatever uses a stream, exclusive for changes of the name. First in the order; I/O under it.
    mutable Gate m_gate;
    StorePath m_path;           // changed with the gate held exclusively
    bool m_isDetached = false;  // changed with m_stateMutex held, too

    // Guards the stream that writes, which is there while a description writes or something is unsaved, and what it has
    // not stored. Behind the gate and a handle's mutex; I/O under it.
    boost::timed_mutex m_writerMutex;
    std::unique_ptr<ByteStream> m_writer;
    std::size_t m_writers = 0;
    ChangedRanges m_ranges;

    mutable std::mutex m_stateMutex;  // guards what follows; a leaf
    std::set<std::shared_ptr<FileHandle>> m_handles;
    std::optional<std::uint64_t> m_size;
    TimePoint m_modified = std::chrono::system_clock::now();
    std::uint64_t m_changes = 0;
    std::uint64_t m_storedChanges = 0;
    bool m_isConflicted = false;
    bool m_hasUntoldFailure = false;
};

/// Read from a stream until size bytes are there, or the end. Result: how many.
std::size_t readFully(ByteStream& stream, char* buffer, std::size_t size);

template <typename Begin, typename Bytes>
bool OpenFile::tellUnsaved(Begin begin, Bytes bytes) {
    constexpr int kLongestWait = 90;  // seconds; the embedded store waits 60 for other processes
    const Shared gate(m_gate, boost::chrono::seconds(kLongestWait));
    const boost::unique_lock<boost::timed_mutex> lock(m_writerMutex, boost::chrono::seconds(kLongestWait));
    if (!gate || !lock) {
        throw ErrnoError(EBUSY);
    }
    if (!isUnsaved()) {
        return false;
    }
    begin(status().size.value_or(0), m_ranges.keptOfStored());
    constexpr std::size_t kPiece = std::size_t{1} << 20U;
    std::vector<char> buffer(kPiece);
    for (const auto& [first, last] : m_ranges.written()) {
        writer().seek(static_cast<std::int64_t>(first), std::ios_base::beg);
        for (auto offset = first; offset < last;) {
            const auto count = readFully(*m_writer, buffer.data(), std::min<std::uint64_t>(kPiece, last - offset));
            if (count == 0) {
                break;
            }
            bytes(offset, std::string_view(buffer.data(), count));
            offset += count;
        }
    }
    return true;
}

}  // namespace cloudfs::mount
