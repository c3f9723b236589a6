// SPDX-License-Identifier: Apache-2.0
#include "CloudProvider.hpp"

#include <storage/cloudprovider/openSequentialWriter.hpp>

namespace storage::cloudprovider {

using foundation::storage::provider::ByteStream;
using foundation::storage::provider::ErrorCode;
using foundation::storage::provider::Exception;
using foundation::storage::provider::IProvider;
using foundation::storage::provider::StorageIRI;

std::unique_ptr<ByteStream> openSequentialWriter(const IProvider& provider, const StorageIRI& iri) {
    const auto* const own = dynamic_cast<const CloudProvider*>(&provider);
    if (own == nullptr) {
        throw Exception(ErrorCode::Unsupported, iri);
    }
    return own->openSequentialWriter(iri);
}

}  // namespace storage::cloudprovider
