// SPDX-License-Identifier: Apache-2.0
#include "openfile/ProviderStream.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/storeStream.hpp>

namespace storage::cloudprovider {

void storeStream(host::ByteStream& stream) {
    withProviderStream(stream, [](ProviderStream& own) { own.store(); });
}

}  // namespace storage::cloudprovider
