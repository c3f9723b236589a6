// SPDX-License-Identifier: Apache-2.0
#include "provider/CloudProvider.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/readInPieces.hpp>

namespace storage::cloudprovider {

void readInPieces(const host::IProvider& provider, const host::StorageIRI& iri, const PieceSink& sink) {
    CloudProvider::of(provider, iri).readInPieces(iri, sink);
}

}  // namespace storage::cloudprovider
