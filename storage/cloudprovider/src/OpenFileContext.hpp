// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Buffer.hpp"

#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/CloudClient.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace storage::cloudprovider {

/// What everything that works on one open file shares. Nothing in it changes: any thread may read it.
struct OpenFileContext {
    /// Derives the key, and reads the two tuning values from the environment. Throws InvalidLocationException
    /// when the identifier's path is not valid UTF-16.
    OpenFileContext(foundation::storage::provider::StorageIRI fileIri, std::shared_ptr<CloudClient> cloudClient,
                    std::unique_ptr<BufferFactory> factory);

    const foundation::storage::provider::StorageIRI iri;
    const std::string key;
    const std::shared_ptr<CloudClient> client;
    const std::unique_ptr<BufferFactory> bufferFactory;
    const std::uint64_t partSize;                 ///< in bytes, not 0
    const std::uint64_t downloadedPartCacheSize;  ///< in bytes
};

}  // namespace storage::cloudprovider
