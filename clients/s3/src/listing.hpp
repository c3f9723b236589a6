// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Bucket.hpp"

#include <storage/cloudprovider/CloudClient.hpp>

#include <string>
#include <vector>

namespace storage::cloudprovider::s3 {

/// List a page, as CloudClient::listObjects. Asks on where the store's page is empty and not the last.
std::vector<ObjectInfo> listObjects(Bucket& bucket, const std::string& prefix, std::string& token,
                                    const ListOptions& options);

}  // namespace storage::cloudprovider::s3
