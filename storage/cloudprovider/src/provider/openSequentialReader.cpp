// SPDX-License-Identifier: Apache-2.0
#include "provider/CloudProvider.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/openSequentialReader.hpp>

namespace storage::cloudprovider {

std::unique_ptr<host::ByteStream> openSequentialReader(const host::IProvider& provider, const host::StorageIRI& iri) {
    const auto* const own = dynamic_cast<const CloudProvider*>(&provider);
    if (own == nullptr) {
        throw host::Exception(host::ErrorCode::Unsupported, iri);
    }
    return own->openSequentialReader(iri);
}

}  // namespace storage::cloudprovider
