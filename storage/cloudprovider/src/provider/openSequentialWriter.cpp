// SPDX-License-Identifier: Apache-2.0
#include "provider/CloudProvider.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/openSequentialWriter.hpp>

namespace storage::cloudprovider {

std::unique_ptr<host::ByteStream> openSequentialWriter(const host::IProvider& provider, const host::StorageIRI& iri) {
    return CloudProvider::of(provider, iri).openSequentialWriter(iri);
}

}  // namespace storage::cloudprovider
