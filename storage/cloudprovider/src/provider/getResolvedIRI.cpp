// SPDX-License-Identifier: Apache-2.0
#include "provider/getResolvedIRI.hpp"

#include "support/host.hpp"
#include "support/translateException.hpp"

#include <storage/cloudprovider/CloudException.hpp>
#include <storage/cloudprovider/utils.hpp>

namespace storage::cloudprovider {

host::StorageIRI getResolvedIRI(const host::StorageIRI& iri) {
    auto key = utils::iriToKey(iri);
    if (utils::hasTrailingSlash(key)) {
        key.pop_back();
    }
    return iri.withPath(utils::keyToPath(key));
}

host::StorageIRI resolvedForHost(const host::StorageIRI& iri) {
    return translatingErrors(iri, [&] { return getResolvedIRI(iri); });
}

void failIfRoot(const host::StorageIRI& resolved) {
    if (!resolved.hasParent()) {
        throw ResourceNotFoundException();
    }
}

}  // namespace storage::cloudprovider
