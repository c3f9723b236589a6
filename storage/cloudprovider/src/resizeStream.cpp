// SPDX-License-Identifier: Apache-2.0
#include "ProviderStream.hpp"

#include <storage/cloudprovider/resizeStream.hpp>

namespace storage::cloudprovider {

void resizeStream(foundation::storage::provider::ByteStream& stream, std::uint64_t size) {
    withProviderStream(stream, [size](ProviderStream& own) { own.resize(size); });
}

}  // namespace storage::cloudprovider
