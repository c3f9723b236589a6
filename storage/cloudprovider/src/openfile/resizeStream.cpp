// SPDX-License-Identifier: Apache-2.0
#include "openfile/ProviderStream.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/resizeStream.hpp>

namespace storage::cloudprovider {

void resizeStream(host::ByteStream& stream, std::uint64_t size) {
    withProviderStream(stream, [size](ProviderStream& own) { own.resize(size); });
}

}  // namespace storage::cloudprovider
