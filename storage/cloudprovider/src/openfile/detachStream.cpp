// SPDX-License-Identifier: Apache-2.0
#include "openfile/ProviderStream.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/detachStream.hpp>

namespace storage::cloudprovider {

void detachStream(host::ByteStream& stream) {
    withProviderStream(stream, [](ProviderStream& own) { own.detach(); });
}

}  // namespace storage::cloudprovider
