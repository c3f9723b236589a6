// SPDX-License-Identifier: Apache-2.0
#include "getResolvedIRI.hpp"

#include <foundation/services/Text.hpp>
#include <storage/cloudprovider/utils.hpp>

namespace storage::cloudprovider {

using foundation::storage::provider::StorageIRI;

// The path cannot simply be the key: making a key drops a dot before each "/" and one at the end, so a key
// that has such dots needs one more of each to be found again.
StorageIRI getResolvedIRI(const StorageIRI& iri) {
    const std::u16string key = utils::removeTrailingSlash(foundation::toUtf16(utils::iriToKey(iri)));
    std::u16string path = u"/";
    path.reserve(key.size() + 1);
    for (std::size_t at = 0; at < key.size(); ++at) {
        path.push_back(key[at]);
        const bool isBeforeSlash = at + 1 == key.size() || key[at + 1] == u'/';
        if (key[at] == u'.' && isBeforeSlash) {
            path.push_back(u'.');
        }
    }
    return iri.withPath(std::move(path));
}

}  // namespace storage::cloudprovider
