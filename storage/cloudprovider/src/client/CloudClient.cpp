// SPDX-License-Identifier: Apache-2.0
#include <storage/cloudprovider/CloudClient.hpp>

namespace storage::cloudprovider {

CloudClient::~CloudClient() = default;

}  // namespace storage::cloudprovider
