// SPDX-License-Identifier: Apache-2.0
#include "ProviderStream.hpp"

#include <storage/cloudprovider/detachStream.hpp>

namespace storage::cloudprovider {

void detachStream(foundation::storage::provider::ByteStream& stream) {
    withProviderStream(stream, [](ProviderStream& own) { own.detach(); });
}

}  // namespace storage::cloudprovider
