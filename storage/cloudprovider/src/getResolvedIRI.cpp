// SPDX-License-Identifier: Apache-2.0
#include "getResolvedIRI.hpp"

#include <storage/cloudprovider/utils.hpp>

namespace storage::cloudprovider {

using foundation::storage::provider::StorageIRI;

StorageIRI getResolvedIRI(const StorageIRI& iri) {
    auto key = utils::iriToKey(iri);
    if (utils::hasTrailingSlash(key)) {
        key.pop_back();
    }
    return iri.withPath(utils::keyToPath(key));
}

}  // namespace storage::cloudprovider
