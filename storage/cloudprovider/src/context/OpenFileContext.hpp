// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buffers/Buffer.hpp"
#include "context/EditedVersion.hpp"
#include "support/host.hpp"

#include <foundation/storage/provider/StorageIRI.hpp>
#include <storage/cloudprovider/ExtendedCloudClient.hpp>
#include <storage/cloudprovider/ProviderOptions.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace storage::cloudprovider {

/// What everything that works on one open file shares. Nothing in it changes but the version, which guards itself: any
/// thread may use it.
struct OpenFileContext {
    /// Derives the key, wraps a plain client, and reads the two tuning values from the environment where the options do
    /// not say them. Throws InvalidLocationException when the identifier's path is not valid UTF-16.
    OpenFileContext(host::StorageIRI fileIri, std::shared_ptr<CloudClient> cloudClient,
                    std::unique_ptr<BufferFactory> factory, const ProviderOptions& providerOptions = {});

    const host::StorageIRI iri;
    const std::string key;
    const std::shared_ptr<ExtendedCloudClient> client;
    const std::unique_ptr<BufferFactory> bufferFactory;
    const ProviderOptions options;
    const std::uint64_t partSize;                 ///< in bytes, not 0
    const std::uint64_t downloadedPartCacheSize;  ///< in bytes
    EditedVersion version;
};

}  // namespace storage::cloudprovider
