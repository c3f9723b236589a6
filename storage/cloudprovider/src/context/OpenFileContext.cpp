// SPDX-License-Identifier: Apache-2.0
#include "context/OpenFileContext.hpp"

#include "client/extendClient.hpp"
#include "support/host.hpp"
#include "support/tuning.hpp"

#include <storage/cloudprovider/utils.hpp>

#include <utility>

namespace storage::cloudprovider {

namespace {

// Parts of size 0 would never hold a byte.
std::uint64_t choosePartSize(const ProviderOptions& options) {
    auto partSize = options.partSize.value_or(0);
    if (partSize == 0) {
        partSize = readPartSize();
    }
    return partSize == 0 ? kDefaultPartSize : partSize;
}

}  // namespace

OpenFileContext::OpenFileContext(host::StorageIRI fileIri, std::shared_ptr<CloudClient> cloudClient,
                                 std::unique_ptr<BufferFactory> factory, const ProviderOptions& providerOptions)
    : iri(std::move(fileIri)),
      key(utils::iriToKey(iri)),
      client(extendClient(std::move(cloudClient))),
      bufferFactory(std::move(factory)),
      options(providerOptions),
      partSize(choosePartSize(options)),
      downloadedPartCacheSize(options.cacheSize ? *options.cacheSize : readDownloadedPartCacheSize()),
      version(mayTellVersions(*client)) {}

}  // namespace storage::cloudprovider
