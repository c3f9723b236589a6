// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <storage/cloudprovider/ExtendedCloudClient.hpp>

#include <string>

namespace storage::cloudprovider {

/// InvalidLocationException when the store takes no object of so long a key.
void checkKeyLength(const ExtendedCloudClient& client, const std::string& key);

}  // namespace storage::cloudprovider
