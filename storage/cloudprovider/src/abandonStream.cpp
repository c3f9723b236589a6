// SPDX-License-Identifier: Apache-2.0
#include "AbandonableStream.hpp"

#include <storage/cloudprovider/abandonStream.hpp>

namespace storage::cloudprovider {

bool abandonStream(foundation::storage::provider::ByteStream& stream) {
    auto* const abandonable = dynamic_cast<AbandonableStream*>(&stream);
    return abandonable != nullptr && abandonable->abandon();
}

}  // namespace storage::cloudprovider
