// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OpenPartManager.hpp"

#include <foundation/storage/provider/ByteStream.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/CloudClient.hpp>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace storage::cloudprovider {

/// The process's table of open objects. An object is a key in a store, so objects are told apart by their
/// resolved identifier and the client; all streams of one share its OpenPartManager.
///
/// Identifiers given to its operations are resolved ones.
/// Errors   what the client and the buffers throw.
/// Threads  any.
class OpenFileManager {
public:
    using StorageIRI = foundation::storage::provider::StorageIRI;
    using ByteStream = foundation::storage::provider::ByteStream;
    using ByteStreamOpenOptions = foundation::storage::provider::ByteStreamOpenOptions;

    /// The one instance; it lives until the process ends.
    static OpenFileManager& instance();

    OpenFileManager(const OpenFileManager&) = delete;
    OpenFileManager& operator=(const OpenFileManager&) = delete;

    /// ResourceNotFoundException when there is no such object.
    std::unique_ptr<ByteStream> openReadOnly(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client);

    /// While the object is open, its content and presence are those of the open streams, whatever the options say.
    std::unique_ptr<ByteStream> openReadWrite(const StorageIRI& iri, const ByteStreamOpenOptions& options,
                                              const std::shared_ptr<CloudClient>& client);

    /// Find or make the object's part manager. Waits while another thread makes it.
    std::shared_ptr<OpenPartManager> acquirePartManager(const StorageIRI& iri,
                                                        ByteStreamOpenOptions::ExistingContent existingContent,
                                                        ByteStreamOpenOptions::Presence presence,
                                                        const std::shared_ptr<CloudClient>& client);

    /// Whether the object is open or being opened.
    bool isOpen(const StorageIRI& iri, const std::shared_ptr<CloudClient>& client) const;

private:
    using Object = std::pair<StorageIRI, const CloudClient*>;
    struct Entry {
        std::weak_ptr<OpenPartManager> manager;
        bool isInitialising = false;
    };
    class Initialisation;

    OpenFileManager() = default;

    // Guards the table; a leaf in the lock order. Never own a manager under it: letting go of the last owner
    // writes to the store.
    mutable std::mutex m_mutex;
    std::condition_variable m_initialised;
    std::map<Object, Entry> m_table;
};

}  // namespace storage::cloudprovider
