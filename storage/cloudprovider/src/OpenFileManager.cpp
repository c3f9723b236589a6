// SPDX-License-Identifier: Apache-2.0
#include "OpenFileManager.hpp"

#include "DiskBackedBufferFactory.hpp"
#include "OpenFileByteStream.hpp"
#include "OpenFileContext.hpp"
#include "RestrictedByteStreams.hpp"
#include "Trace.hpp"

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/CloudException.hpp>

namespace storage::cloudprovider {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ByteStreamOpenOptions;
using foundation::storage::provider::StorageIRI;

namespace {

// Scheme and authority say how the host came here, not which object of the client is meant.
StorageIRI withoutAuthority(const StorageIRI& iri) {
    return StorageIRI().withPath(iri.getPath());
}

using ExistingContent = ByteStreamOpenOptions::ExistingContent;
using Presence = ByteStreamOpenOptions::Presence;

std::shared_ptr<OpenPartManager> makePartManager(const StorageIRI& iri, ExistingContent existingContent,
                                                 Presence presence, const std::shared_ptr<CloudClient>& client) {
    const auto context = std::make_shared<OpenFileContext>(iri, client, std::make_unique<DiskBackedBufferFactory>());
    auto manager = std::make_shared<OpenPartManager>(context);
    if (existingContent == ExistingContent::Preserve) {
        manager->initPreserveExisting(presence == Presence::Required);
    } else if (presence == Presence::Required) {
        if (!client->getObjectInfo(context->key)) {
            throw ResourceNotFoundException();
        }
    } else {
        client->checkObjectName(foundation::toUtf8(iri.getName()));
    }
    return manager;
}

}  // namespace

// Keeps an entry marked as being initialised; whatever happens, the mark goes and waiters wake.
class OpenFileManager::Initialisation {
public:
    // Call with the mutex held.
    Initialisation(OpenFileManager& files, const Object& object) : m_files(files), m_object(object) {
        m_files.m_table[object].isInitialising = true;
    }
    Initialisation(const Initialisation&) = delete;
    Initialisation& operator=(const Initialisation&) = delete;
    ~Initialisation() {
        const std::lock_guard lock(m_files.m_mutex);
        const auto entry = m_files.m_table.find(m_object);
        if (m_manager.expired()) {
            m_files.m_table.erase(entry);
        } else {
            entry->second = {m_manager, false};
        }
        m_files.m_initialised.notify_all();
    }

    void succeedWith(const std::shared_ptr<OpenPartManager>& manager) { m_manager = manager; }

private:
    OpenFileManager& m_files;
    const Object m_object;
    std::weak_ptr<OpenPartManager> m_manager;
};

OpenFileManager& OpenFileManager::instance() {
    // Never destroyed: streams that static objects hold may close later than any destructor here would run.
    static auto* const instance = new OpenFileManager;
    return *instance;
}

std::unique_ptr<ByteStream> OpenFileManager::openReadOnly(const StorageIRI& iri,
                                                          const std::shared_ptr<CloudClient>& client) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    auto manager = acquirePartManager(iri, ExistingContent::Preserve, Presence::Required, client);
    return std::make_unique<ReadOnlyByteStream>(
        std::make_unique<OpenFileByteStream>(std::move(manager), ByteStreamOpenOptions::WriteMode::Positioned));
}

std::unique_ptr<ByteStream> OpenFileManager::openReadWrite(const StorageIRI& iri, const ByteStreamOpenOptions& options,
                                                           const std::shared_ptr<CloudClient>& client) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri, " options=", options);
    auto manager = acquirePartManager(iri, options.existingContent, options.presence, client);
    auto stream = std::make_unique<OpenFileByteStream>(std::move(manager), options.writeMode);
    if (options.access == ByteStreamOpenOptions::Access::WriteOnly) {
        return std::make_unique<WriteOnlyByteStream>(std::move(stream));
    }
    return stream;
}

std::shared_ptr<OpenPartManager> OpenFileManager::acquirePartManager(const StorageIRI& iri,
                                                                     ExistingContent existingContent, Presence presence,
                                                                     const std::shared_ptr<CloudClient>& client) {
    CLOUDPROVIDER_TRACE_FUNCTION();
    const Object object(withoutAuthority(iri), client.get());
    std::unique_lock lock(m_mutex);
    // Looked up again after each wait: the entry may have gone, and come back, meanwhile.
    for (auto known = m_table.find(object); known != m_table.end(); known = m_table.find(object)) {
        if (!known->second.isInitialising) {
            if (auto manager = known->second.manager.lock()) {
                return manager;
            }
            break;
        }
        m_initialised.wait(lock);
    }
    Initialisation initialisation(*this, object);
    for (auto entry = m_table.begin(); entry != m_table.end();) {
        const bool isDead = !entry->second.isInitialising && entry->second.manager.expired();
        entry = isDead ? m_table.erase(entry) : std::next(entry);
    }
    lock.unlock();

    auto manager = makePartManager(iri, existingContent, presence, client);
    initialisation.succeedWith(manager);
    return manager;
}

bool OpenFileManager::isOpen(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client) const {
    CLOUDPROVIDER_TRACE_FUNCTION();
    CLOUDPROVIDER_TRACE_ARGUMENTS(" iri=", iri);
    const std::lock_guard lock(m_mutex);
    const auto entry = m_table.find(Object(withoutAuthority(iri), client.get()));
    return entry != m_table.end() && (entry->second.isInitialising || !entry->second.manager.expired());
}

}  // namespace storage::cloudprovider
