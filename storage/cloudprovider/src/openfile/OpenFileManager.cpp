// SPDX-License-Identifier: Apache-2.0
#include "openfile/OpenFileManager.hpp"

#include "buffers/DiskBackedBufferFactory.hpp"
#include "client/checkKeyLength.hpp"
#include "client/extendClient.hpp"
#include "context/OpenFileContext.hpp"
#include "openfile/OpenFileByteStream.hpp"
#include "openfile/RestrictedByteStreams.hpp"
#include "openfile/SequentialWriter.hpp"
#include "reading/ParallelRead.hpp"
#include "reading/SequentialReader.hpp"
#include "reading/describeStart.hpp"
#include "support/Trace.hpp"
#include "support/host.hpp"
#include "support/interrupt.hpp"

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/CloudException.hpp>

#include <optional>
#include <utility>
#include <vector>

namespace storage::cloudprovider {

using host::ByteStream;
using host::ByteStreamOpenOptions;
using host::StorageIRI;

// What the table has of an object, and what opening it does then:
//
//   no entry --> a mark is set --> the manager is made, and counts the stream --> the manager's entry
//                                   '--failed--> no entry
//   a mark ---> wait until it has gone, and look again; or, if its owner says so, ResourceInUseException
//   a manager's entry --> it counts the stream
//                          '--refused: it retires just now--> look again
//
// ExclusiveHold sets a mark and takes it away. A manager's entry goes when the manager retires, or with its last owner.
//
// (1) An object has one manager that takes streams, or one owner of its mark, or neither.
// (2) Only its owner changes an entry that is marked.
// (3) A manager is in the table from its first stream on, and leaves it in the step in which it retires: an opener that
//     was refused does not find it again.
// (4) The table owns no manager, and none is let go with the mutex held: the last owner gives an upload up.
// (5) Nothing waits for the client with the mutex held, so opening one object waits for no other.

namespace {

constexpr std::size_t kHandedOverAtOnce = std::size_t{256} * 1024;

// Scheme and authority say how the host came here, not which object of the client is meant.
StorageIRI withoutAuthority(const StorageIRI& iri) {
    return StorageIRI().withPath(iri.getPath());
}

std::shared_ptr<OpenFileContext> makeContext(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                                             const Engine& engine) {
    const auto room = engine.options.lightBuffers ? Room::InSteps : Room::AtOnce;
    return std::make_shared<OpenFileContext>(
        iri, client, std::make_unique<DiskBackedBufferFactory>(room, engine.memory), engine.options);
}

// Result: as read's.
std::int64_t readSome(ByteStream& stream, std::vector<char>& buffer, const StorageIRI& iri) {
    try {
        return stream.read(buffer.data(), static_cast<std::int64_t>(buffer.size()));
    } catch (const host::ByteStreamFailure& failure) {
        throw host::Exception(failure.getErrorCode(), iri, failure.getContext());
    }
}

std::exception_ptr handOverAll(ByteStream& stream, const StorageIRI& iri, const PieceSink& sink) {
    std::vector<char> buffer(kHandedOverAtOnce);
    std::uint64_t offset = 0;
    for (auto count = readSome(stream, buffer, iri); count >= 0; count = readSome(stream, buffer, iri)) {
        const auto size = static_cast<std::size_t>(count);
        try {
            sink(offset, {buffer.data(), size});
        } catch (...) {
            return std::current_exception();
        }
        offset += size;
    }
    return nullptr;
}

using ExistingContent = ByteStreamOpenOptions::ExistingContent;
using Presence = ByteStreamOpenOptions::Presence;

}  // namespace

// (2): keeps an entry marked as being initialised; whatever happens, the mark goes and waiters wake.
class OpenFileManager::Initialisation {
public:
    Initialisation(OpenFileManager& files, const Object& object, Openers openers) CLOUDPROVIDER_REQUIRES(files.m_mutex)
        : m_files(files), m_object(object) {
        auto& entry = m_files.m_table[object];
        entry.isInitialising = true;
        entry.openers = openers;
    }
    Initialisation(const Initialisation&) = delete;
    Initialisation& operator=(const Initialisation&) = delete;
    ~Initialisation() {
        const foundation::MutexLock lock(m_files.m_mutex);
        const auto entry = m_files.m_table.find(m_object);
        if (m_identity == nullptr) {
            m_files.m_table.erase(entry);
        } else {
            entry->second = {std::move(m_manager), m_identity};
        }
        m_files.m_initialised.notifyAll();
    }

    void succeedWith(const std::shared_ptr<OpenPartManager>& manager) noexcept {
        m_manager = manager;
        m_identity = manager.get();
    }

private:
    OpenFileManager& m_files;
    const Object m_object;
    std::weak_ptr<OpenPartManager> m_manager;
    const OpenPartManager* m_identity = nullptr;  // set when there is a manager
};

OpenFileManager::ExclusiveHold::ExclusiveHold(OpenFileManager& files, const StorageIRI& iri,
                                              const std::shared_ptr<CloudClient>& client, Openers openers) {
    const Object object(withoutAuthority(iri), originalOf(client));
    const foundation::MutexLock lock(files.m_mutex);
    if (files.isOpenLocked(object)) {
        throw ResourceInUseException();
    }
    m_mark = std::make_unique<Initialisation>(files, object, openers);
}

OpenFileManager::ExclusiveHold::~ExclusiveHold() = default;

OpenFileManager& OpenFileManager::instance() {
    // Never destroyed: streams that static objects hold may close later than any destructor here would run.
    static auto* const instance = new OpenFileManager;
    return *instance;
}

std::unique_ptr<ByteStream> OpenFileManager::openReadOnly(const StorageIRI& iri,
                                                          const std::shared_ptr<CloudClient>& client,
                                                          const Engine& engine) {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return openToRead(iri, false, client, engine).stream;
}

OpenFileManager::VersionStream OpenFileManager::openVersion(const StorageIRI& iri,
                                                            const std::shared_ptr<CloudClient>& client,
                                                            const Engine& engine) {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    return openToRead(iri, true, client, engine);
}

OpenFileManager::VersionStream OpenFileManager::openToRead(const StorageIRI& iri, bool mustBeFirst,
                                                           const std::shared_ptr<CloudClient>& client,
                                                           const Engine& engine) {
    auto stream = std::make_unique<OpenFileByteStream>(ByteStreamOpenOptions::WriteMode::Positioned);
    auto& inner = *stream;
    auto readOnly = std::make_unique<ReadOnlyByteStream>(std::move(stream));
    auto version = open(inner, iri,
                        {.existingContent = ExistingContent::Preserve,
                         .presence = Presence::Required,
                         .mustBeFirst = mustBeFirst,
                         .isForReading = true,
                         .engine = engine},
                        client);
    return {std::move(readOnly), std::move(version)};
}

std::unique_ptr<ByteStream> OpenFileManager::openReadWrite(const StorageIRI& iri, const ByteStreamOpenOptions& options,
                                                           const std::shared_ptr<CloudClient>& client,
                                                           const Engine& engine) {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri, " options=", options);
    auto stream = std::make_unique<OpenFileByteStream>(options.writeMode);
    auto& inner = *stream;
    std::unique_ptr<ByteStream> result;
    if (options.access == ByteStreamOpenOptions::Access::WriteOnly) {
        result = std::make_unique<WriteOnlyByteStream>(std::move(stream));
    } else {
        result = std::move(stream);
    }
    open(inner, iri, {.existingContent = options.existingContent, .presence = options.presence, .engine = engine},
         client);
    return result;
}

std::unique_ptr<ByteStream> OpenFileManager::openReplacement(const StorageIRI& iri,
                                                             const std::shared_ptr<CloudClient>& client,
                                                             const ExpectedObject& expected, const Engine& engine) {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    auto stream = std::make_unique<OpenFileByteStream>(ByteStreamOpenOptions::WriteMode::Positioned);
    auto& inner = *stream;
    auto writeOnly = std::make_unique<WriteOnlyByteStream>(std::move(stream));
    open(inner, iri, {ExistingContent::Discard, Presence::Optional, expected, true, false, engine}, client);
    inner.storeAtClose();
    return writeOnly;
}

std::unique_ptr<ByteStream> OpenFileManager::openSequentially(const StorageIRI& iri,
                                                              const std::shared_ptr<CloudClient>& client,
                                                              const ExpectedObject& expected, const Engine& engine) {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    auto hold = std::make_unique<ExclusiveHold>(*this, iri, client, Openers::Refused);
    auto context = makeContext(iri, client, engine);
    context->version.replace(expected);
    checkKeyLength(*context->client, context->key);
    context->client->checkObjectName(foundation::toUtf8(iri.getName()));
    return std::make_unique<SequentialWriter>(std::move(context), engine.pool, std::move(hold));
}

std::unique_ptr<ByteStream> OpenFileManager::openToReadSequentially(const StorageIRI& iri,
                                                                    const std::shared_ptr<CloudClient>& client,
                                                                    const Engine& engine) {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    if (isOpen(iri, client)) {
        return openReadOnly(iri, client, engine);
    }
    return std::make_unique<SequentialReader>(makeContext(iri, client, engine), engine);
}

std::exception_ptr OpenFileManager::readInPieces(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client,
                                                 const Engine& engine, const PieceSink& sink) {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    if (isOpen(iri, client)) {
        return handOverAll(*openReadOnly(iri, client, engine), iri, sink);
    }
    auto context = makeContext(iri, client, engine);
    auto start = describeStart(*context);
    return std::make_shared<ParallelRead>(std::move(context), std::move(start), sink, engine.pool)->run();
}

// The last step of opening: what comes to be counted is whole, and is handed to the caller.
std::string OpenFileManager::open(OpenFileByteStream& stream, const StorageIRI& iri, const Opening& opening,
                                  const std::shared_ptr<CloudClient>& client) {
    auto [manager, isFirst, version] = acquirePartManager(iri, opening, client);
    const bool hasDiscarded = isFirst && opening.existingContent != ExistingContent::Preserve;
    stream.attach(std::move(manager), hasDiscarded ? std::optional<ChangePoint>(0) : std::nullopt);
    return std::move(version);
}

OpenFileManager::Acquired OpenFileManager::acquirePartManager(const StorageIRI& iri, const Opening& opening,
                                                              const std::shared_ptr<CloudClient>& client) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const Object object(withoutAuthority(iri), originalOf(client));
    while (true) {
        foundation::MutexLock lock(m_mutex);
        // Looked up again after each wait: the entry may have gone, and come back, meanwhile.
        auto known = m_table.end();
        waitInScope(m_initialised, lock, [&]() CLOUDPROVIDER_REQUIRES(m_mutex) {
            known = m_table.find(object);
            if (known == m_table.end() || !known->second.isInitialising) {
                return true;
            }
            if (known->second.openers == Openers::Refused) {
                throw ResourceInUseException();
            }
            return false;
        });
        if (auto manager = known != m_table.end() ? known->second.manager.lock() : nullptr) {
            lock.unlock();  // (4)
            if (opening.mustBeFirst) {
                throw ResourceInUseException();
            }
            if (manager->registerByteStream()) {
                return {std::move(manager), false};
            }
            continue;  // (3)
        }
        Initialisation initialisation(*this, object, Openers::Wait);
        for (auto entry = m_table.begin(); entry != m_table.end();) {
            const bool isDead = !entry->second.isInitialising && entry->second.manager.expired();
            entry = isDead ? m_table.erase(entry) : std::next(entry);
        }
        lock.unlock();  // (5)

        auto made = makePartManager(iri, opening, client);
        made.manager->onRetired([this, object, identity = made.manager.get()] { forget(object, identity); });
        made.manager->registerByteStream();
        initialisation.succeedWith(made.manager);
        return made;
    }
}

OpenFileManager::Acquired OpenFileManager::makePartManager(const StorageIRI& iri, const Opening& opening,
                                                           const std::shared_ptr<CloudClient>& client) {
    const auto context = makeContext(iri, client, opening.engine);
    auto manager = std::make_shared<OpenPartManager>(context, opening.engine.pool);
    const bool mustExist = opening.presence == Presence::Required;
    if (!mustExist) {
        checkKeyLength(*context->client, context->key);
    }
    bool isKnownToExist = mustExist;
    if (opening.existingContent == ExistingContent::Preserve) {
        const auto start = opening.isForReading ? OpenPartManager::Start::Fetch : OpenPartManager::Start::Leave;
        isKnownToExist = manager->initPreserveExisting(mustExist, start);
    } else {
        context->version.replace(opening.discarded);
        if (mustExist && !context->client->getObjectInfo(context->key)) {
            throw ResourceNotFoundException();
        }
    }
    if (!isKnownToExist) {
        context->client->checkObjectName(foundation::toUtf8(iri.getName()));
    }
    return {std::move(manager), true, context->version.get()};
}

void OpenFileManager::forget(const Object& object, const OpenPartManager* manager) noexcept {
    const foundation::MutexLock lock(m_mutex);
    const auto entry = m_table.find(object);
    if (entry != m_table.end() && !entry->second.isInitialising && entry->second.identity == manager) {
        m_table.erase(entry);
    }
}

bool OpenFileManager::isOpen(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client) const {
    CLOUDPROVIDER_TRACE_FUNCTION(" iri=", iri);
    const Object object(withoutAuthority(iri), originalOf(client));
    const foundation::MutexLock lock(m_mutex);
    return isOpenLocked(object);
}

bool OpenFileManager::isOpenLocked(const Object& object) const {
    const auto entry = m_table.find(object);
    return entry != m_table.end() && (entry->second.isInitialising || !entry->second.manager.expired());
}

}  // namespace storage::cloudprovider
