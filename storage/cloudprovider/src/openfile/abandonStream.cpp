// SPDX-License-Identifier: Apache-2.0
#include "openfile/ProviderStream.hpp"
#include "support/host.hpp"

#include <storage/cloudprovider/abandonStream.hpp>

namespace storage::cloudprovider {

bool abandonStream(host::ByteStream& stream) {
    auto* const own = dynamic_cast<ProviderStream*>(&stream);
    return own != nullptr && own->abandon();
}

}  // namespace storage::cloudprovider
