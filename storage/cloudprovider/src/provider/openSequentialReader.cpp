// SPDX-License-Identifier: Apache-2.0
#include "provider/CloudProvider.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/openSequentialReader.hpp>

namespace storage::cloudprovider {

std::unique_ptr<host::ByteStream> openSequentialReader(const host::IProvider& provider, const host::StorageIRI& iri) {
    return CloudProvider::of(provider, iri).openSequentialReader(iri);
}

}  // namespace storage::cloudprovider
