// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "context/Engine.hpp"
#include "provider/FileTransfer.hpp"
#include "support/host.hpp"

#include <foundation/storage/provider/IProvider.hpp>
#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <memory>
#include <optional>
#include <string>

namespace storage::cloudprovider {

/// Copies and moves one file to another name, inside the store if that can, else through streams.
///
/// Whether destination may be replaced was looked at before; replaced says what is stored over, should it have come
/// meanwhile.
/// Errors   the host's Exception, and what its streams throw; see IProvider::moveFile.
/// Threads  any.
class FileCopier {
public:
    /// files opens and removes what client has; it has to outlive this.
    FileCopier(const host::IProvider& files, std::shared_ptr<ExtendedCloudClient> client, const Engine& engine);

    /// A copy that fails leaves the destination as it was.
    void copy(const host::StorageIRI& source, const host::StorageIRI& destination,
              const ExpectedObject& replaced) const;

    /// In the order that the engine's options say. Both are resolved identifiers.
    void move(const host::StorageIRI& source, const host::StorageIRI& destination,
              const ExpectedObject& replaced) const;

private:
    FileTransfer openTransfer(const host::StorageIRI& source, const host::StorageIRI& destination,
                              const ExpectedObject& replaced) const;
    FileTransfer openTransfer(std::unique_ptr<host::ByteStream> source, const host::StorageIRI& destination,
                              const ExpectedObject& replaced) const;
    void failIfDestinationOpen(const host::StorageIRI& destination) const;

    // Have the store copy a file by itself. Result: the version that was copied; nothing, with nothing done: the bytes
    // have to travel.
    std::optional<std::string> copyInsideStore(const host::StorageIRI& source, const host::StorageIRI& destination,
                                               const ExpectedObject& replaced) const;

    // Copy a file that is not open, inside the store or through streams. Result: the version that was copied.
    std::string copyVersion(const host::StorageIRI& source, const host::StorageIRI& destination,
                            const ExpectedObject& replaced) const;

    // Whether the object is known to have another version.
    bool isReplaced(const std::string& key, const std::string& version) const;

    void removeMoved(const host::StorageIRI& resolved, const std::string& version) const;

    const host::IProvider& m_files;
    const std::shared_ptr<ExtendedCloudClient> m_client;
    const Engine& m_engine;
};

}  // namespace storage::cloudprovider
