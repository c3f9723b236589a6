// SPDX-License-Identifier: Apache-2.0
#include "provider/CloudProvider.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/readInPieces.hpp>

namespace storage::cloudprovider {

void readInPieces(const host::IProvider& provider, const host::StorageIRI& iri, const PieceSink& sink) {
    const auto* const own = dynamic_cast<const CloudProvider*>(&provider);
    if (own == nullptr) {
        throw host::Exception(host::ErrorCode::Unsupported, iri);
    }
    own->readInPieces(iri, sink);
}

}  // namespace storage::cloudprovider
