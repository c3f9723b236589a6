// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/Engine.hpp"
#include "openfile/OpenFileByteStream.hpp"
#include "openfile/OpenPartManager.hpp"
#include "support/host.hpp"

#include <foundation/storage/provider/ByteStream.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <foundation/threads/Mutex.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/readInPieces.hpp>

#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace storage::cloudprovider {

/// The process's table of open objects. An object is a key in a store, so objects are told apart by their
/// resolved identifier and the client; all streams of one share its OpenPartManager. A manager enters the table with
/// its first stream, and leaves it in the step in which it retires.
///
/// Identifiers given to its operations are resolved ones. An engine says how a file is kept and transferred, unless it
/// is open already.
/// Errors   what the client and the buffers throw.
/// Threads  any.
class OpenFileManager {
    class Initialisation;

public:
    using StorageIRI = host::StorageIRI;
    using ByteStream = host::ByteStream;
    using ByteStreamOpenOptions = host::ByteStreamOpenOptions;

    /// What becomes of who opens an object that somebody has for himself.
    enum class Openers : std::uint8_t {
        Wait,    ///< until that has gone
        Refused  ///< ResourceInUseException
    };

    /// Has an object for its owner alone, as one that is being opened.
    class ExclusiveHold {
    public:
        /// ResourceInUseException when the object is open or being opened.
        ExclusiveHold(OpenFileManager& files, const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                      Openers openers = Openers::Wait);
        ExclusiveHold(const ExclusiveHold&) = delete;
        ExclusiveHold& operator=(const ExclusiveHold&) = delete;
        ~ExclusiveHold();

    private:
        std::unique_ptr<Initialisation> m_mark;
    };

    /// A stream and the version of the object that it was opened on; empty: the store cannot tell.
    struct VersionStream {
        std::unique_ptr<ByteStream> stream;
        std::string version;
    };

    /// The one instance; it lives until the process ends.
    static OpenFileManager& instance();

    OpenFileManager(const OpenFileManager&) = delete;
    OpenFileManager& operator=(const OpenFileManager&) = delete;

    /// ResourceNotFoundException when there is no such object.
    std::unique_ptr<ByteStream> openReadOnly(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                                             const Engine& engine = {});

    /// The same, but ResourceInUseException when the object is open: what is read is of one known version, unless
    /// somebody opens it later and changes it.
    VersionStream openVersion(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                              const Engine& engine = {});

    /// While the object is open, its content and presence are those of the open streams, whatever the options say.
    std::unique_ptr<ByteStream> openReadWrite(const StorageIRI& iri, const ByteStreamOpenOptions& options,
                                              const std::shared_ptr<CloudClient>& client, const Engine& engine = {});

    /// Open the object to be written anew, over what is expected; closing the stream stores it whoever else has it open
    /// by then, or fails. ResourceInUseException when the object is open.
    std::unique_ptr<ByteStream> openReplacement(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                                                const ExpectedObject& expected, const Engine& engine = {});

    /// Open the object to be written anew from its beginning to its end, over what is expected: nobody else opens it
    /// meanwhile. ResourceInUseException when it is open.
    std::unique_ptr<ByteStream> openSequentially(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                                                 const ExpectedObject& expected, const Engine& engine);

    /// Open the object as it is stored to read it from its beginning to its end; while it is open, or somebody has it
    /// for himself, as openReadOnly does.
    std::unique_ptr<ByteStream> openToReadSequentially(const StorageIRI& iri,
                                                       const std::shared_ptr<CloudClient>& client,
                                                       const Engine& engine);

    /// Hand the bytes of the object as it is stored to sink; while it is open, or somebody has it for himself, as
    /// openReadOnly would read them. Result: what sink threw, if it did.
    std::exception_ptr readInPieces(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                                    const Engine& engine, const PieceSink& sink);

    /// Whether the object is open or being opened. Streams that the object was replaced under do not count: their file
    /// is no longer the object's.
    bool isOpen(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client) const;

private:
    using Object = std::pair<StorageIRI, const CloudClient*>;
    struct Entry {
        std::weak_ptr<OpenPartManager> manager;
        const OpenPartManager* identity = nullptr;  // only to be compared
        bool isInitialising = false;
        Openers openers = Openers::Wait;  // while it is being initialised
    };
    /// How the first stream of an object opens it.
    struct Opening {
        ByteStreamOpenOptions::ExistingContent existingContent;
        ByteStreamOpenOptions::Presence presence;
        ExpectedObject discarded = ExpectedObject::anything();  // what a discarded content may be stored over
        bool mustBeFirst = false;
        bool isForReading = false;
        Engine engine{};
    };
    /// A manager that has counted a stream, and whether that is the first one; then with the version that it found.
    struct Acquired {
        std::shared_ptr<OpenPartManager> manager;
        bool isFirst;
        std::string version{};
    };

    OpenFileManager() = default;

    /// Find or make the object's part manager, and count a stream with it. Waits while another thread makes it.
    Acquired acquirePartManager(const StorageIRI& iri, const Opening& opening,
                                const std::shared_ptr<CloudClient>& client);
    Acquired makePartManager(const StorageIRI& iri, const Opening& opening, const std::shared_ptr<CloudClient>& client);
    VersionStream openToRead(const StorageIRI& iri, bool mustBeFirst, const std::shared_ptr<CloudClient>& client,
                             const Engine& engine);
    /// Result   the version, as of Acquired.
    std::string open(OpenFileByteStream& stream, const StorageIRI& iri, const Opening& opening,
                     const std::shared_ptr<CloudClient>& client);
    bool isOpenLocked(const Object& object) const CLOUDPROVIDER_REQUIRES(m_mutex);
    void forget(const Object& object, const OpenPartManager* manager) noexcept;

    // A leaf in the lock order. Never own a manager under it: letting go of the last owner writes to the store.
    mutable foundation::Mutex m_mutex;
    foundation::ConditionVariable m_initialised;
    std::map<Object, Entry> m_table CLOUDPROVIDER_GUARDED_BY(m_mutex);
};

}  // namespace storage::cloudprovider
