// SPDX-License-Identifier: Apache-2.0
#include "CloudProvider.hpp"

#include <storage/cloudprovider/openSequentialReader.hpp>

namespace storage::cloudprovider {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;

std::unique_ptr<ByteStream> openSequentialReader(const IProvider& provider, const StorageIRI& iri) {
    const auto* const own = dynamic_cast<const CloudProvider*>(&provider);
    if (own == nullptr) {
        throw Exception(ErrorCode::Unsupported, iri);
    }
    return own->openSequentialReader(iri);
}

}  // namespace storage::cloudprovider
