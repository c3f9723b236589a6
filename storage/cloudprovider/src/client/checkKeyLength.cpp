// SPDX-License-Identifier: Apache-2.0
#include "client/checkKeyLength.hpp"

#include "support/host.hpp"

#include <storage/cloudprovider/CloudException.hpp>

namespace storage::cloudprovider {

void checkKeyLength(const ExtendedCloudClient& client, const std::string& key) {
    const auto longest = client.limits().LongestKey;
    if (key.size() > longest) {
        throw InvalidLocationException(host::ExceptionContext(
            "the key has " + std::to_string(key.size()) + " bytes, and the store takes " + std::to_string(longest)));
    }
}

}  // namespace storage::cloudprovider
